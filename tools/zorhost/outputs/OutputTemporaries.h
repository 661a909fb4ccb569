// The temporary directories zorhost writes its outputs in, process-wide: what a signal
// removes, what a write fault was met in, and the stale ones a killed run left.
//
// Each temporary directory is `.zorhost-XXXXXX` (mkdtemp: a fresh name, mode 0700) and
// holds a `.lock` that its run keeps locked (flock) for its life; the lock file is made
// under another name and renamed to `.lock` once locked, so a `.lock` that another run
// can lock belongs to a run that is gone, and its directory may be removed.
//
// One registry for the whole process: this library is shared by zorhost, its MetaFlight
// module and the Python module, so a signal sees every temporary of them all.
#pragma once

#include <string>

namespace outputTemporaries {

// Makes a locked temporary directory in `directory`, after removing the stale ones there;
// "" with `problem` set when it cannot be made. The directory's path is absolute.
std::string make(const std::string& directory, std::string& problem);
// Removes a directory made by `make`, contents and lock included.
void remove(const std::string& temporary);

// Notes a failed write (errno `error`) of a file inside one of the temporaries.
void noteWriteError(const std::string& path, int error);
// The first failed write noted inside `temporary`, as a reason ("" when none).
std::string writeProblem(const std::string& temporary);

// While a commit runs, SIGINT, SIGTERM and SIGHUP wait for it: a set of files is then
// either all replaced or all kept.
class CommitGuard {
public:
    CommitGuard();
    ~CommitGuard();  // a signal that came meanwhile takes effect here
    CommitGuard(const CommitGuard&) = delete;
    CommitGuard& operator=(const CommitGuard&) = delete;
};

// Installs handlers for SIGINT, SIGTERM and SIGHUP that remove every temporary, then die
// of the signal with its default action, so that a calling shell sees it. For programs
// only: a library (the Python module) leaves the process's signals alone.
void removeOnSignals();

}  // namespace outputTemporaries
