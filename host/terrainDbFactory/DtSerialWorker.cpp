#include "terrainDbFactory/DtSerialWorker.h"

#include "gdalsupport/DtGdalScope.h"
#include "hxutil/DtNotify.h"

DtSerialWorker::DtSerialWorker()
    : threaded_(std::thread::hardware_concurrency() > 1), quiet_(DtNotifyLevel <= 0) {}

DtSerialWorker::~DtSerialWorker() {
    if (!thread_.joinable())
        return;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        idle_.wait(lock, [this] { return !job_; });
        stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void DtSerialWorker::submit(std::function<void()> job) {
    if (!threaded_) {
        job();
        return;
    }
    if (!thread_.joinable())
        thread_ = std::thread([this] { run(); });
    std::unique_lock<std::mutex> lock(mutex_);
    idle_.wait(lock, [this] { return !job_; });
    job_ = std::move(job);
    wake_.notify_all();
}

void DtSerialWorker::wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    idle_.wait(lock, [this] { return !job_; });
}

void DtSerialWorker::run() {
    const DtGdalMessages messages(quiet_ ? DtGdalMessages::Quiet : DtGdalMessages::Printed);
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stop_ || job_; });
        if (!job_)
            break;
        lock.unlock();
        job_();
        lock.lock();
        job_ = nullptr;
        idle_.notify_all();
    }
}
