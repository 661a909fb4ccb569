// The DTED cell under BenchData.h's points: level 1, 1201 x 1201 posts over N45 E007,
// with ridges across it for a hillshade to show. Written once per run in its directory.
#pragma once

#include <filesystem>
#include <string>

#include "BenchData.h"
#include "DtedCell.h"

inline const std::string& benchCell() {
    static const std::string path = [] {
        const std::string file = directory() + "/n45_e007.dt1";
        if (std::filesystem::exists(file))
            return file;
        writeDtedCell(file, 45, 7, 1201, [](int row, int col) {
            const int i = row * 1201 + col;
            return (i % 1201) * 3 % 1700 + (i / 1201) % 500;
        });
        return file;
    }();
    return path;
}
