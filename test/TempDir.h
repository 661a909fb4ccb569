// A directory under the system's temporary directory, removed with its contents when
// the test ends.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zortest-XXXXXX").string();
        path_ = mkdtemp(pattern.data()) ? pattern : std::string();
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

    // Writes `bytes` to `name` and answers the file's path.
    std::string write(const std::string& name, const std::string& bytes) const {
        const std::string target = file(name);
        std::ofstream(target, std::ios::binary) << bytes;
        return target;
    }

private:
    std::string path_;
};
