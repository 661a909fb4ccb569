// Runs the real zorhost binary from the repository's root, as a person would, and keeps
// what it printed and its exit status.
//
//   const ZorhostRun run = zorhost("inspect --json");
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "TempDir.h"

struct ZorhostRun {
    int status;
    std::string out;
    std::string err;
};

inline std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

inline ZorhostRun zorhost(const std::string& arguments, const std::string& environment = "") {
    TempDir dir;
    // From the repository's root, where the sample description's directories resolve.
    const std::string command = std::string("cd '") + ZOR_SOURCE_DIR + "' && " + environment +
                                " '" + ZORHOST_PATH + "' " + arguments + " >'" + dir.file("out") +
                                "' 2>'" + dir.file("err") + "'";
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(dir.file("out")), slurp(dir.file("err"))};
}

// Runs a shell command (GDAL's and GeographicLib's tools, as a user runs them); its
// standard output.
inline std::string shell(const std::string& command) {
    std::string output;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[512];
        while (size_t n = std::fread(buffer, 1, sizeof buffer, pipe))
            output.append(buffer, n);
        ::pclose(pipe);
    }
    return output;
}

inline size_t countLines(const std::string& text) {
    size_t lines = 0;
    for (char c : text)
        lines += c == '\n';
    return lines;
}
