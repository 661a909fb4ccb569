// DtFilename: a path as text, with the file-system questions and cuts the engine's
// loaders ask of it. Directory separators are '/'.
//
//   DtFilename tile("/data/terrain/L03/tile_012_007.flt");
//   tile.extension();            // "flt"
//   DtFilename::stripPath(tile); // "tile_012_007.flt"
#pragma once

#include "hxutil/DtString.h"

class DtFilename : public DtString {
public:
    DtFilename() = default;
    DtFilename(const char* path);
    DtFilename(const std::string& path);
    DtFilename(const DtFilename&) = default;
    DtFilename& operator=(const DtFilename&) = default;
    ~DtFilename() override = default;

    // Whether the path is absolute (begins with '/').
    virtual bool absolute() const;
    // The path made absolute against the working directory and normalised lexically.
    DtFilename absolutePath() const;
    // The path relative to the working directory.
    virtual DtFilename relative() const;
    virtual bool exists() const;
    virtual bool isReadable() const;
    virtual bool isWritable() const;
    // Size of the file in bytes, -1 when it is no readable regular file.
    virtual long long fileLength() const;
    // The text after the last '.' of the last path component, without the point; empty
    // when there is none (a leading '.' of a hidden file does not count). Trailing
    // slashes are no component: "roads.gdb/" has the extension "gdb".
    virtual DtString extension() const;
    // Replaces the extension, or adds one; `extension` may start with '.'.
    virtual DtFilename& setExtension(const char* extension);
    virtual DtFilename& stripExtension();
    // Keeps the last path component.
    virtual DtFilename& stripPath();
    // Keeps the directory, without the trailing '/'; "" for a bare name, "/" for root.
    virtual DtFilename& stripFilename();
    // Adds a path component behind, with one '/' between.
    virtual DtFilename& append(const char* component);
    // Puts a directory in front, with one '/' between.
    virtual DtFilename& prepend(const char* directory);
    // When this file does not exist, looks for its name in each directory of the
    // ':'-separated list and, on the first that has it, becomes that path.
    virtual bool searchAlternatePath(const char* directories);

    static DtFilename stripPath(const DtFilename& path);
    static const DtFilename& nullFilename();
};
