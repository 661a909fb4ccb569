#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace {

const auto quietFor = std::chrono::seconds(2);
const auto between = std::chrono::milliseconds(500);

}  // namespace

Progress::Progress(std::ostream& err, std::string what, bool asked)
    : err_(err),
      what_(std::move(what)),
      terminal_(isatty(STDERR_FILENO)),
      wanted_(asked || terminal_),
      start_(Clock::now()),
      last_(start_) {}

Progress::~Progress() {
    if (shown_ && terminal_)
        err_ << "\r\x1b[K" << std::flush;
}

bool Progress::due() {
    if (!wanted_)
        return false;
    const Clock::time_point now = Clock::now();
    if (now - start_ < quietFor || now - last_ < between)
        return false;
    last_ = now;
    shown_ = true;
    return true;
}

// A terminal's line is rewritten in place; a file gets a line per update.
void Progress::say(const char* text) {
    err_ << (terminal_ ? "\r" : "") << "zorhost: " << what_ << ": " << text
         << (terminal_ ? "" : "\n") << std::flush;
}

void Progress::update(size_t done, size_t total) {
    if (!due())
        return;
    const double percent = total > 0 ? 100.0 * static_cast<double>(done) / total : 0.0;
    char line[96];
    std::snprintf(line, sizeof(line), "%zu of %zu (%.0f%%)", done, total, percent);
    say(line);
}

void Progress::share(double done) {
    if (!due())
        return;
    char line[32];
    std::snprintf(line, sizeof(line), "%.0f%%", 100.0 * std::min(1.0, std::max(0.0, done)));
    say(line);
}
