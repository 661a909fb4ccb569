// DtSerialWorker: runs jobs one at a time, in the order given, on a thread of its own
// (started with the first job), or in the caller's thread when the machine has a single
// core. GDAL's messages in that thread are quiet or printed as the caller's were when
// the worker was made.
//
//   DtSerialWorker worker;
//   worker.submit([&] { build(batch); });   // waits for the job before
//   worker.wait();
//
// Internal to the loader; not installed.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

class DtSerialWorker {
public:
    DtSerialWorker();
    ~DtSerialWorker();  // waits for the last job
    DtSerialWorker(const DtSerialWorker&) = delete;
    DtSerialWorker& operator=(const DtSerialWorker&) = delete;

    // Waits for the job before, then starts this one.
    void submit(std::function<void()> job);
    // Returns once the last job given has run.
    void wait();

private:
    void run();

    const bool threaded_;
    const bool quiet_;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable wake_, idle_;
    std::function<void()> job_;
    bool stop_ = false;
};
