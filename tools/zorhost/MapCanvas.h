// A map's picture on Cairo: the marks of what the engine holds, drawn in the picture's
// grid, and the furniture a reader needs (title, legend, scale bar, north arrow, the
// scene in small print). Points closer together than the picture can show are thinned:
// a marker is left out when one is already drawn within its cell.
//
//   MapCanvas canvas(grid);
//   canvas.paintGround(ground.pixels);
//   canvas.point(plane.fromScene(location), faccCategory(code).colour);
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

struct LegendEntry {
    enum Swatch { None, Point, Line, Area, Prop, Tile, Ramp } swatch = None;
    MapColour colour;
    std::string text;
};

struct Furniture {
    std::string title;
    std::string sceneText;        // in small print along the foot
    double metresPerUnitX = 1.0;  // ground metres per plane unit at the centre: the scale bar's
    bool gridNorth = true;        // a projected plane: up is grid north
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
    // Labels the tiles drawn so far, over what lies under them; marks drawn later stay
    // above the labels.
    void labelTiles();

    void legend(const std::vector<LegendEntry>& entries);
    void furniture(const Furniture& furniture);

    bool writePng(const std::string& path, std::string& problem);

private:
    struct Label {
        double x, y;
        std::string text;
    };
    double px(const PlanePoint& p) const { return grid_.column(p.x); }
    double py(const PlanePoint& p) const { return grid_.row(p.y); }
    std::vector<MapPixel> pixelsOf(const std::vector<PlanePoint>& vertices) const;
    void outlinePath(const std::vector<PlanePoint>& outline);
    void linePath(const std::vector<PlanePoint>& vertices);
    void setColour(const MapColour& c, double alpha = 1.0);
    cairo_surface_t* markerSprite(const MapColour& colour);
    void northArrow(const Furniture& furniture);
    void scaleBar(const Furniture& furniture);

    MapGrid grid_;
    using Surface = std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)>;
    Surface surface_;
    std::unique_ptr<cairo_t, void (*)(cairo_t*)> cairo_;
    int cellColumns_, cellRows_;
    std::vector<uint8_t> occupied_;
    std::map<uint32_t, Surface> sprites_;  // a point marker per colour
    std::vector<Label> labels_;
};
