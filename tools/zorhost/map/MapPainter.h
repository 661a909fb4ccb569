// What `zorhost map` draws of what the plug-in loaded, in which order, and what it counts
// of it for the legend and for stdout.
#pragma once

#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "MapCanvas.h"
#include "MapCommand.h"
#include "MapGround.h"
#include "PropsLoad.h"
#include "ScenePlane.h"
#include "zorCore/DtFeatureSet.h"
#include "zorCore/DtPropAdder.h"

// Draws what was loaded, counting what it draws for the legend and the summary.
class MapPainter {
public:
    MapPainter(MapCanvas& canvas, const ScenePlane& plane, const MapContent& content,
               const TileStates* cells = nullptr)
        : canvas_(canvas), plane_(plane), content_(content), cells_(cells) {}

    // Areas under lines; points go over the tiles, with the props.
    void areasAndLines();
    void points();
    void props();
    // Draws a level too fine for each tile to show as the grid's outline with every so
    // many lines, and says so; false, drawing nothing, when each tile can be outlined.
    bool denseTiles(const TileLevelGrid& grid);
    TileVisitor tiles();
    size_t tileCount() const { return tileRows_ * tileColumns_; }
    std::vector<LegendEntry> legend(const MapRequest& request, const Ground& ground) const;
    void summary(const MapRequest& request, std::ostream& out) const;

private:
    struct KindCounts {
        size_t points = 0, lines = 0, areas = 0;
    };
    std::vector<PlanePoint> inPlane(const std::vector<DtVector64>& vertices) const;

    MapCanvas& canvas_;
    const ScenePlane& plane_;
    const MapContent& content_;
    const TileStates* cells_;
    std::map<char, KindCounts> categories_;
    size_t thinned_ = 0, pointsOutside_ = 0;
    std::vector<size_t> propsPerRule_;
    size_t unplaced_ = 0, propsOutside_ = 0;
    size_t tiles_ = 0, tileRows_ = 0, tileColumns_ = 0, tilesUnplaced_ = 0;
    size_t tileLineEvery_ = 0;            // a dense level: a line every so many tiles
    std::vector<uint64_t> tilesByState_;  // of a checked level's cells
};
