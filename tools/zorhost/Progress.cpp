#include "Progress.h"

#include <unistd.h>

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

void Progress::update(size_t done, size_t total) {
    if (!wanted_)
        return;
    const Clock::time_point now = Clock::now();
    if (now - start_ < quietFor || now - last_ < between)
        return;
    last_ = now;
    shown_ = true;
    const double percent = total > 0 ? 100.0 * static_cast<double>(done) / total : 0.0;
    char line[160];
    // A terminal's line is rewritten in place; a file gets a line per update.
    std::snprintf(line, sizeof(line), "%szorhost: %s: %zu of %zu (%.0f%%)%s", terminal_ ? "\r" : "",
                  what_.c_str(), done, total, percent, terminal_ ? "" : "\n");
    err_ << line << std::flush;
}
