#include "MapPainter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include "PropFacing.h"
#include "TextNumbers.h"
#include "TileCheck.h"

namespace {

std::string plural(size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string kindsText(size_t points, size_t lines, size_t areas) {
    std::string text;
    for (const auto& [count, one, many] :
         {std::make_tuple(points, "point", "points"), std::make_tuple(lines, "line", "lines"),
          std::make_tuple(areas, "area", "areas")}) {
        if (count > 0)
            text += (text.empty() ? "" : ", ") + plural(count, one, many);
    }
    return text;
}

}  // namespace

std::vector<PlanePoint> MapPainter::inPlane(const std::vector<DtVector64>& vertices) const {
    std::vector<PlanePoint> points;
    points.reserve(vertices.size());
    for (const DtVector64& v : vertices)
        points.push_back(plane_.fromScene(v));
    return points;
}

// Areas under lines, whatever order the files give them in.
void MapPainter::areasAndLines() {
    auto ignore = [](const auto&) {};
    for (const auto& layer : content_.layers) {
        layer->featureSet().forEach(ignore, ignore, [&](const kelZor::DtArealFeature& f) {
            const FaccCategory& category = faccCategory(f.code().text());
            ++categories_[category.letter].areas;
            canvas_.area(inPlane(f.vertices()), category.colour);
        });
    }
    for (const auto& layer : content_.layers) {
        layer->featureSet().forEach(
            ignore,
            [&](const kelZor::DtEdgeFeature& f) {
                const FaccCategory& category = faccCategory(f.code().text());
                ++categories_[category.letter].lines;
                canvas_.line(inPlane(f.vertices()), category.colour);
            },
            ignore);
    }
}

void MapPainter::points() {
    auto ignore = [](const auto&) {};
    for (const auto& layer : content_.layers) {
        layer->featureSet().forEach(
            [&](const kelZor::DtPointFeature& f) {
                const FaccCategory& category = faccCategory(f.code().text());
                ++categories_[category.letter].points;
                const PlanePoint where = plane_.fromScene(f.location());
                if (canvas_.point(where, category.colour))
                    return;
                const MapGrid& grid = canvas_.grid();
                ++(grid.contains(where) ? thinned_ : pointsOutside_);
            },
            ignore, ignore);
    }
}

void MapPainter::props() {
    propsPerRule_.assign(content_.rules.rules.size(), 0);
    for (size_t i = 0; i < content_.props.numProps(); ++i) {
        const kelArchives::DtPropRecord& record = content_.props.prop(i).record();
        const size_t rule = content_.ruleOfProp[i];
        ++propsPerRule_[rule];
        if (!propPlaced(record)) {
            ++unplaced_;
            continue;
        }
        // A place ten metres ahead shows the facing in any plane, geographic or projected.
        const DtVector64 position = propPosition(record);
        const DtVector64 forward = propForward(record);
        const DtVector64 ahead(position.x() + 10.0 * forward.x(), position.y() + 10.0 * forward.y(),
                               position.z() + 10.0 * forward.z());
        if (!canvas_.prop(plane_.fromScene(position), plane_.fromScene(ahead), ruleColour(rule)))
            ++propsOutside_;
    }
}

namespace {

// Pixels between neighbouring tile lines below which outlines would merge.
const double leastTileSpacing = 6.0;
// Pixels a dense level's lines are at least apart.
const double denseLineSpacing = 24.0;

}  // namespace

bool MapPainter::denseTiles(const TileLevelGrid& grid) {
    tileRows_ = grid.rows;
    tileColumns_ = grid.columns;
    if (grid.rows == 0 || grid.columns == 0)
        return false;
    // The spacing of the lines in pixels, at the level's centre and corners.
    const MapGrid& frame = canvas_.grid();
    double spacing = std::numeric_limits<double>::infinity();
    const double stepX = 1.0 / grid.columns, stepY = 1.0 / grid.rows;
    for (double fx : {0.0, 0.5, 1.0 - stepX}) {
        for (double fy : {0.0, 0.5, 1.0 - stepY}) {
            PlanePoint a, b, c;
            if (!plane_.fromWgs84(grid.at(fx, fy), a) ||
                !plane_.fromWgs84(grid.at(fx + stepX, fy), b) ||
                !plane_.fromWgs84(grid.at(fx, fy + stepY), c))
                continue;
            const double across = std::hypot(b.x - a.x, b.y - a.y) / frame.pixelWidth();
            const double along = std::hypot(c.x - a.x, c.y - a.y) / frame.pixelHeight();
            spacing = std::min({spacing, across, along});
        }
    }
    if (!(spacing < leastTileSpacing))
        return false;
    tiles_ = static_cast<size_t>(grid.rows) * grid.columns;
    if (cells_ && cells_->rows == grid.rows && cells_->columns == grid.columns) {
        PlanePoint northWest, northEast, southWest;
        if (plane_.fromWgs84(grid.at(0.0, 1.0), northWest) &&
            plane_.fromWgs84(grid.at(1.0, 1.0), northEast) &&
            plane_.fromWgs84(grid.at(0.0, 0.0), southWest))
            canvas_.cellImage(*cells_, northWest, northEast, southWest);
        tilesByState_.assign(tileStateCount, 0);
        for (uint8_t state : cells_->states)
            ++tilesByState_[std::min<uint8_t>(state, tileStateCount - 1)];
        return true;
    }
    size_t every = 1;
    while (every * spacing < denseLineSpacing && every < (size_t{1} << 40))
        every *= 2;
    tileLineEvery_ = every;
    auto toPlane = [&](const std::vector<Wgs84Position>& places) {
        std::vector<PlanePoint> points;
        for (const Wgs84Position& place : places) {
            PlanePoint p;
            if (plane_.fromWgs84(place, p))
                points.push_back(p);
        }
        return points;
    };
    // Lines follow the grid's own curve in the plane: a place every 8 pixels or so.
    const int samples = std::max(2, std::max(frame.width, frame.height) / 8);
    std::vector<Wgs84Position> outline;
    for (int side = 0; side < 4; ++side) {
        for (int i = 0; i < samples; ++i) {
            const double t = static_cast<double>(i) / samples;
            outline.push_back(side == 0   ? grid.at(t, 0.0)
                              : side == 1 ? grid.at(1.0, t)
                              : side == 2 ? grid.at(1.0 - t, 1.0)
                                          : grid.at(0.0, 1.0 - t));
        }
    }
    canvas_.tileCoverage(toPlane(outline));
    for (size_t col = every; col < grid.columns; col += every) {
        std::vector<Wgs84Position> line;
        for (int i = 0; i <= samples; ++i)
            line.push_back(
                grid.at(static_cast<double>(col) / grid.columns, static_cast<double>(i) / samples));
        canvas_.tileLine(toPlane(line));
    }
    for (size_t row = every; row < grid.rows; row += every) {
        std::vector<Wgs84Position> line;
        for (int i = 0; i <= samples; ++i)
            line.push_back(
                grid.at(static_cast<double>(i) / samples, static_cast<double>(row) / grid.rows));
        canvas_.tileLine(toPlane(line));
    }
    return true;
}

TileVisitor MapPainter::tiles() {
    return [this](const TileFootprint& tile) {
        PlanePoint corners[4];
        bool placed = true;
        for (int i = 0; i < 4; ++i)
            placed = plane_.fromWgs84(tile.corners[i], corners[i]) && placed;
        ++tiles_;
        tileRows_ = std::max<size_t>(tileRows_, tile.row + 1);
        tileColumns_ = std::max<size_t>(tileColumns_, tile.col + 1);
        if (!placed) {
            ++tilesUnplaced_;
            return;
        }
        if (cells_ && tile.row < cells_->rows && tile.col < cells_->columns) {
            const uint8_t state = std::min<uint8_t>(cells_->at(tile.row, tile.col), 4);
            tilesByState_.resize(tileStateCount, 0);
            ++tilesByState_[state];
            canvas_.tileCell(corners, tileStateColour(state));
            return;
        }
        canvas_.tile(corners, std::to_string(tile.row) + "," + std::to_string(tile.col));
    };
}

std::vector<LegendEntry> MapPainter::legend(const MapRequest& request, const Ground& ground) const {
    std::vector<LegendEntry> entries;
    if (!ground.pixels.empty()) {
        entries.push_back(
            {LegendEntry::Ramp,
             {},
             "ground " + metresText(ground.lowest) + " to " + metresText(ground.highest) + " m"});
    }
    for (size_t i = 0; i < faccCategoryCount; ++i) {
        const FaccCategory& category = faccCategories()[i];
        const auto found = categories_.find(category.letter);
        if (found == categories_.end())
            continue;
        const KindCounts& n = found->second;
        const LegendEntry::Swatch swatch = n.areas   ? LegendEntry::Area
                                           : n.lines ? LegendEntry::Line
                                                     : LegendEntry::Point;
        const std::string letter =
            category.letter == '?' ? "" : std::string(1, category.letter) + " ";
        entries.push_back({swatch, category.colour,
                           letter + category.name + ": " + kindsText(n.points, n.lines, n.areas)});
    }
    if (thinned_ > 0) {
        entries.push_back({LegendEntry::None,
                           {},
                           plural(thinned_, "point", "points") + " not drawn: within " +
                               std::to_string(MapCanvas::pointCell) + " pixels of one drawn"});
    }
    for (size_t rule = 0; rule < propsPerRule_.size(); ++rule) {
        const kelArchives::DtAddPropsRuleRecord& r = content_.rules.rules[rule];
        entries.push_back({LegendEntry::Prop, ruleColour(rule),
                           "rule " + std::to_string(rule) + ": " + conditionText(r) + " -> " +
                               r.modelDefinition() + ": " +
                               plural(propsPerRule_[rule], "prop", "props")});
    }
    if (unplaced_ > 0) {
        entries.push_back({LegendEntry::None,
                           {},
                           plural(unplaced_, "prop", "props") +
                               " not placed (no terrain below or above): not drawn"});
    }
    if (tiles_ > 0 && !tilesByState_.empty()) {
        entries.push_back({LegendEntry::None,
                           {},
                           request.dataset + " level " + std::to_string(request.level) + ": " +
                               std::to_string(tileRows_) + " x " + std::to_string(tileColumns_) +
                               " tiles"});
        const char* names[] = {"present",
                               "missing",
                               "empty",
                               "unreadable",
                               "outside the database",
                               "in an unreadable directory"};
        static_assert(sizeof names / sizeof names[0] == tileStateCount, "a name per state");
        for (uint8_t state = 0; state < tileStateCount; ++state) {
            if (tilesByState_[state] > 0) {
                entries.push_back(
                    {LegendEntry::Area, tileStateColour(state),
                     std::string(names[state]) + ": " + std::to_string(tilesByState_[state])});
            }
        }
    } else if (tiles_ > 0) {
        const std::string lines =
            tileLineEvery_ > 0 ? " (a line every " + std::to_string(tileLineEvery_) + " tiles)"
                               : " tiles (row,col)";
        entries.push_back({LegendEntry::Tile, tileLineColour,
                           request.dataset + " level " + std::to_string(request.level) + ": " +
                               std::to_string(tileRows_) + " x " + std::to_string(tileColumns_) +
                               lines});
    }
    return entries;
}

void MapPainter::summary(const MapRequest& request, std::ostream& out) const {
    size_t points = 0, lines = 0, areas = 0;
    for (const auto& [letter, n] : categories_) {
        points += n.points;
        lines += n.lines;
        areas += n.areas;
    }
    if (!request.features.empty()) {
        out << "features: " << points << " point, " << lines << " linear, " << areas << " areal";
        if (thinned_ || pointsOutside_) {
            out << " (points not drawn: " << thinned_ << " too close to another, " << pointsOutside_
                << " outside the picture)";
        }
        out << "\n";
    }
    if (!request.props.empty()) {
        out << "props: " << content_.props.numProps() - unplaced_ << " placed, " << unplaced_
            << " not placed";
        if (propsOutside_)
            out << ", " << propsOutside_ << " outside the picture";
        out << "\n";
    }
    if (!request.tiles.empty()) {
        out << "tiles: " << request.dataset << " level " << request.level << ", " << tiles_
            << " tiles";
        if (tileLineEvery_ > 0)
            out << ", too close to outline each: a line every " << tileLineEvery_ << " tiles";
        if (tilesUnplaced_)
            out << ", " << tilesUnplaced_ << " not drawn (a corner the scene cannot place)";
        out << "\n";
    }
}
