// A file zorhost writes for a person: never over one it was not asked to write, and
// whole or not at all.
//
// The target is refused when it is one of the command's inputs (the same file through
// any path or link; a shapefile's companion files; anything inside an input directory,
// such as a File Geodatabase) or a directory, and when it exists unless `overwrite` is
// given. It is written under a temporary name beside it and renamed into place only once
// complete; a command that fails leaves the target as it was.
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
    bool begin(const std::string& target, const std::vector<std::string>& inputs, bool overwrite,
               std::string& problem);
    // Where to write: a fresh path in a directory of its own beside the target, with the
    // target's name, so that drivers that choose by extension see the right one.
    const std::string& temporaryPath() const { return temporary_; }
    // Renames the temporary over the target; false with the reason.
    bool commit(std::string& problem);

private:
    std::string target_;
    std::string directory_;  // the temporary's own directory
    std::string temporary_;
};
