// A file zorhost writes for a person: never over one it was not asked to write, and
// whole or not at all.
//
// The target is refused when it is one of the command's inputs (the same file through
// any path or link; a shapefile's companion files; anything inside an input directory,
// such as a File Geodatabase) or a directory, and when it exists unless `overwrite` is
// given. It is written under a temporary name beside it and renamed into place only once
// complete; a command that fails leaves the target as it was. Companion files (a
// picture's world file) are checked the same way and put in place with it.
//
//   OutputFile file;
//   if (!file.begin(path, {input}, overwrite, problem)) ...   // one line: path and reason
//   write(file.temporaryPath());
//   if (!file.commit(problem)) ...
#pragma once

#include <string>
#include <vector>

class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();  // an uncommitted temporary goes
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Checks the target and makes a place for the temporary; false with the reason.
    // `companions` go with the target: each is written beside the temporary and put in
    // place just before it; one the command did not write is removed from beside the
    // target, so that none is left describing an older target.
    bool begin(const std::string& target, const std::vector<std::string>& inputs, bool overwrite,
               std::string& problem, const std::vector<std::string>& companions = {});
    // Where to write: a fresh path in a directory of its own beside the target, with the
    // target's name, so that drivers that choose by extension see the right one.
    const std::string& temporaryPath() const { return temporary_; }
    // Where to write a companion given to begin.
    std::string temporaryPathOf(const std::string& companion) const;
    // Renames the temporary over the target; false with the reason.
    bool commit(std::string& problem);

private:
    std::string target_;
    std::string directory_;  // the temporary's own directory
    std::string temporary_;
    std::vector<std::string> companions_;
};
