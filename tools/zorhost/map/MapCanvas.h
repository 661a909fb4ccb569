// A map's picture on Cairo: the marks of what the engine holds, drawn in the picture's
// grid (the data frame), and the furniture a reader needs (title, legend, scale bar,
// north arrow, the scene in small print), which never hides a placed mark: each piece
// goes to a corner of the frame where it covers nothing, or all go to a panel east of
// the frame. Points closer together than the picture can show are thinned: a marker is
// left out when one is already drawn within its cell.
//
//   MapCanvas canvas(grid);
//   canvas.paintGround(ground.pixels);
//   canvas.point(plane.fromScene(location), faccCategory(code).colour);
//   canvas.finish(furniture);
//   if (!canvas.writePng(path, problem)) ...
#pragma once

#include <cairo.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "MapGrid.h"
#include "MapStyle.h"
#include "TileFootprint.h"

struct LegendEntry {
    enum Swatch { None, Point, Line, Area, Prop, Tile, Ramp } swatch = None;
    MapColour colour;
    std::string text;
};

// Where the legend goes: Automatic puts the furniture in the frame's corners when they
// hide no mark, and outside otherwise; Corner keeps it in the corners that hide the
// fewest; None leaves the legend out and places the rest as Automatic does.
enum class LegendPlacement { Automatic, Outside, Corner, None };
const char* legendPlacementName(LegendPlacement placement);

struct Furniture {
    std::string title;
    std::string sceneText;        // in small print along the foot
    double metresPerUnitX = 1.0;  // ground metres per plane unit at the centre: the scale bar's
    bool gridNorth = true;        // a projected plane: up is grid north
    std::vector<LegendEntry> legend;
    std::vector<MapColour> ramp;  // the ground's colours from its lowest to its highest
    LegendPlacement placement = LegendPlacement::Automatic;
};

class MapCanvas {
public:
    static const int pointCell = 3;  // pixels: the thinning cell of point markers

    explicit MapCanvas(const MapGrid& grid);
    MapCanvas(const MapCanvas&) = delete;
    MapCanvas& operator=(const MapCanvas&) = delete;

    const MapGrid& grid() const { return grid_; }
    // False with the reason when Cairo could not make the picture (too large for memory).
    bool ok(std::string& problem) const;

    void paintGround(const std::vector<uint32_t>& pixels);
    void area(const std::vector<PlanePoint>& outline, const MapColour& colour);
    void line(const std::vector<PlanePoint>& vertices, const MapColour& colour);
    // False when the marker is left out: outside the picture, or thinned.
    bool point(const PlanePoint& where, const MapColour& colour);
    // A prop's square with a tick towards `ahead`, a place in front of it; false when it
    // is outside the picture.
    bool prop(const PlanePoint& where, const PlanePoint& ahead, const MapColour& colour);
    void tile(const PlanePoint corners[4], const std::string& label);
    // A level too fine to outline each tile: its outline, and lines every so many tiles.
    void tileCoverage(const std::vector<PlanePoint>& outline);
    void tileLine(const std::vector<PlanePoint>& vertices);
    // A tile filled with its colour.
    void tileCell(const PlanePoint corners[4], const MapColour& colour);
    // A level's tiles as an image of cells, a pixel a tile (or a block of tiles, the
    // worst state of the block, for a level over 16384 tiles a side), laid on the grid's
    // corners: north-west, north-east and south-west.
    void cellImage(const TileStates& cells, const PlanePoint& northWest,
                   const PlanePoint& northEast, const PlanePoint& southWest);
    // Labels the tiles drawn so far, over what lies under them; marks drawn later stay
    // above the labels.
    void labelTiles();

    // Composes the ground, the marks and the furniture into the picture; nothing is
    // drawn after.
    void finish(const Furniture& furniture);
    // The picture's size: the frame, and the panel east of it when the furniture is there.
    int pictureWidth() const { return pictureWidth_; }
    int pictureHeight() const { return pictureHeight_; }
    bool furnitureOutside() const { return outside_; }
    cairo_surface_t* picture();

    bool writePng(const std::string& path, std::string& problem);

private:
    struct Label {
        double x, y;
        std::string text;
    };
    struct Piece {
        enum Kind { Title, NorthArrow, Legend, Foot } kind;
        double width, height;
        int corner;  // its own: 0 north-west, 1 north-east, 2 south-west, 3 south-east
    };
    double px(const PlanePoint& p) const { return grid_.column(p.x); }
    double py(const PlanePoint& p) const { return grid_.row(p.y); }
    std::vector<MapPixel> pixelsOf(const std::vector<PlanePoint>& vertices) const;
    void outlinePath(const std::vector<PlanePoint>& outline, bool crisp = false);
    void linePath(const std::vector<PlanePoint>& vertices);
    void setColour(const MapColour& c, double alpha = 1.0);
    cairo_surface_t* markerSprite(const MapColour& colour);
    void measure(const Furniture& furniture, std::vector<Piece>& pieces);
    size_t marksUnder(double left, double top, double width, double height) const;
    void cornerOf(const Piece& piece, int corner, double& left, double& top) const;
    std::vector<int> bestCorners(const std::vector<Piece>& pieces, size_t& hidden) const;
    void drawPiece(cairo_t* cr, const Piece& piece, const Furniture& furniture, double left,
                   double top) const;
    void legend(cairo_t* cr, const Furniture& furniture, double left, double top) const;
    void northArrow(cairo_t* cr, double x, double y, bool gridNorth) const;
    double scaleBarLength(const Furniture& furniture) const;
    void scaleBar(cairo_t* cr, const Furniture& furniture, double right, double bottom) const;

    MapGrid grid_;
    using Surface = std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)>;
    Surface surface_;  // the marks
    Surface ground_, picture_;
    std::unique_ptr<cairo_t, void (*)(cairo_t*)> cairo_;
    int cellColumns_, cellRows_;
    std::vector<uint8_t> occupied_;
    std::map<uint32_t, Surface> sprites_;  // a point marker per colour
    std::vector<Label> labels_;
    std::vector<std::string> sceneLines_;
    bool outside_ = false;
    int pictureWidth_ = 0, pictureHeight_ = 0;
};
