// Progress on stderr for work a person waits on: said only once the work has taken two
// seconds, at most twice a second, and only when stderr is a terminal or it was asked
// for (--progress); the line is cleared when the work is done.
//
//   Progress progress(err, "drawing tiles", request.progress);
//   for (...) progress.update(done, total);
#pragma once

#include <chrono>
#include <cstddef>
#include <ostream>
#include <string>

class Progress {
public:
    Progress(std::ostream& err, std::string what, bool asked);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void update(size_t done, size_t total);
    // For work measured only as a share of the whole, 0 to 1.
    void share(double done);

private:
    bool due();
    void say(const char* line);
    using Clock = std::chrono::steady_clock;
    std::ostream& err_;
    std::string what_;
    bool shown_ = false, terminal_, wanted_;
    Clock::time_point start_, last_;
};
