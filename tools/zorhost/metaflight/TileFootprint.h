// A tile of a MetaFlight geometry dataset where it lies on the earth, as zorhost's module
// hands it to zorhost (which knows nothing of the plug-in's classes).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Wgs84Position.h"

struct TileFootprint {
    unsigned level = 0, row = 0, col = 0;
    // The grid corners (col, row), (col + 1, row), (col + 1, row + 1), (col, row + 1):
    // counter-clockwise when rows run north and columns east.
    Wgs84Position corners[4];
    std::string path;
};
using TileVisitor = std::function<void(const TileFootprint&)>;

// A level's grid as a whole, for a picture too fine to show each tile: its size, and
// where the point at fractions (fx of the columns, fy of the rows) lies on the earth.
// `at` holds only while the visitor it was given to runs.
struct TileLevelGrid {
    unsigned level = 0, rows = 0, columns = 0;
    std::function<Wgs84Position(double fx, double fy)> at;
};
using TileGridVisitor = std::function<void(const TileLevelGrid&)>;

// What `check` found of each tile of a level, for a picture of it: a byte per tile, row by
// row from row 0, of the values of TileState (present, missing, empty, unreadable,
// outside the database).
struct TileStates {
    unsigned rows = 0, columns = 0;
    std::vector<uint8_t> states;
    uint8_t at(unsigned row, unsigned col) const {
        return states[static_cast<size_t>(row) * columns + col];
    }
};
