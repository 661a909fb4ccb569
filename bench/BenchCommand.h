// A benchmark that runs a shell command each iteration, as a person runs the programs
// measured (zorhost, GDAL's tools, find), fresh processes paying their own start.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

inline void runCommand(benchmark::State& state, const std::string& command) {
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError(("failed: " + command).c_str());
            return;
        }
    }
}
