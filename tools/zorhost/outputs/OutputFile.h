// A file zorhost writes for a person, with the files that go with it (a picture's world
// file and .aux.xml): never over one it was not asked to write, and whole or not at all.
//
// The target is refused when it is one of the command's inputs (the same file through
// any path or link; a shapefile's companion files; anything inside an input directory,
// such as a File Geodatabase) or a directory, and when it exists (a link included)
// unless `overwrite` is given. Everything is written in a temporary directory of its own
// beside the target (mkdtemp, locked for the run's life; one a killed run left is
// removed by the next run writing there), and put in place only once complete:
// - a write fault anywhere (a full disk, a file size limit, an I/O error), in zorhost's
//   own writes or GDAL's, fails the commit and leaves the target as it was;
// - the set (target and companions) is replaced as a unit: the old files are kept aside
//   until the new ones stand, and put back when any step fails or a signal comes;
// - without `overwrite` the last step never replaces a file that appeared meanwhile, so
//   of two runs racing for one new name exactly one succeeds;
// - with `overwrite` a replaced file's mode (and owner, where the process may set it)
//   is kept; a link is followed as the shell's `>` follows it, and stays a link;
// - a target that exists and is no regular file (a pipe, a device, /dev/stdout) and "-"
//   (standard output) are written through in place, never replaced; they get no
//   companions.
//
//   OutputFile file;
//   if (!file.begin(path, {input}, overwrite, problem)) ...   // one line: path and reason
//   write(file.temporaryPath());          // zorhost's own writes, through a CheckedFile
//   gdalWrite(file.gdalPath());           // GDAL's, through the checked file system
//   if (!file.commit(problem)) ...
#pragma once

#include <string>
#include <vector>

class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();  // what was not committed goes
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Checks the target and its companions and makes the temporary; false with the
    // reason. A companion the command does not write is removed from beside the target
    // when the target is replaced, so that none is left describing an older target.
    bool begin(const std::string& target, const std::vector<std::string>& inputs, bool overwrite,
               std::string& problem, const std::vector<std::string>& companions = {});
    // Where to write: a path in the temporary directory with the target's name, so that
    // drivers that choose by extension see the right one.
    const std::string& temporaryPath() const { return temporary_; }
    std::string temporaryPathOf(const std::string& companion) const;
    // The same, for GDAL to write through the checked file system.
    std::string gdalPath() const;
    std::string gdalPathOf(const std::string& companion) const;
    // The first write fault met in the temporaries ("" when none): the reason to give
    // when a library fails after a short write with a message of its own.
    std::string writeFault() const;
    // Puts the files in place; false with the reason, everything as it was.
    bool commit(std::string& problem);
    // Written through in place: standard output, a pipe, a device.
    bool inPlace() const { return inPlace_; }

private:
    struct Member {
        std::string given;        // as the command named it
        std::string destination;  // the file it ends at, links followed
        std::string staging;      // the temporary directory beside the destination
        std::string aside;        // where the old file waits during the commit
        bool written = false, placed = false, setAside = false;
    };
    bool addMember(const std::string& given, const std::vector<std::string>& inputs,
                   std::string& problem);
    std::string stagingFor(const std::string& directory, std::string& problem);
    bool writeInPlace(std::string& problem);
    bool prepare(Member& m, size_t index, std::string& problem);
    bool place(Member& m, std::string& problem);
    void rollBack();

    bool overwrite_ = false;
    bool inPlace_ = false;
    std::string target_;
    std::string temporary_;
    std::vector<std::string> directories_;  // temporaries, the first the writers' own
    std::vector<Member> members_;           // companions first, the target last
};
