// What a map's marks look like: a colour per FACC category (the code's first letter), a
// colour per props rule, and the elevation ramp under the hillshade. The tests read
// the same colours back out of the picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct MapColour {
    double r = 0.0, g = 0.0, b = 0.0;
    // Each channel as the 8-bit value a PNG of it holds.
    int red() const { return static_cast<int>(r * 255.0 + 0.5); }
    int green() const { return static_cast<int>(g * 255.0 + 0.5); }
    int blue() const { return static_cast<int>(b * 255.0 + 0.5); }
};

struct FaccCategory {
    char letter;  // '?' for a code outside the categories
    const char* name;
    MapColour colour;
};

// The category of a FACC code ("AL015": A, culture).
const FaccCategory& faccCategory(const std::string& code);
// Every category in legend order, the catch-all last; `faccCategoryCount` of them.
const FaccCategory* faccCategories();
extern const size_t faccCategoryCount;

MapColour ruleColour(size_t rule);

// A checked tile's colour by its state (TileState's value): present green, missing red,
// empty orange, unreadable purple, outside the database grey.
MapColour tileStateColour(uint8_t state);

const MapColour mapBackground = {0.96, 0.95, 0.92};
const MapColour tileLineColour = {0.20, 0.20, 0.25};
const MapColour inkColour = {0.10, 0.10, 0.10};
