#include "MapCanvas.h"

#include <algorithm>
#include <cmath>

#include "JsonOutput.h"

namespace {

const double markerRadius = 3.5;
const double propHalfSide = 4.0;
const int spriteSize = 11;        // pixels: a point marker with its outline, centred
const size_t labelLimit = 20000;  // tile labels kept for the end; more could not be read
const char* const fontFamily = "sans-serif";

// Cairo takes UTF-8 only, and stops drawing after a text that is not: a file name may
// hold any bytes.
std::string printable(const std::string& text) {
    return Json::parse(jsonText(Json(text))).get<std::string>();
}

// Beyond this many pixels outside the picture geometry is cut: Cairo holds coordinates in
// 24.8 fixed point, and a far vertex would wrap round into view.
const double clipMargin = 64.0;

struct ClipBox {
    double left, top, right, bottom;
    bool inside(const MapPixel& p, int edge) const {
        switch (edge) {
            case 0:
                return p.x >= left;
            case 1:
                return p.x <= right;
            case 2:
                return p.y >= top;
            default:
                return p.y <= bottom;
        }
    }
    // Where the segment a-b crosses the edge's line.
    MapPixel crossing(const MapPixel& a, const MapPixel& b, int edge) const {
        const double at = edge == 0 ? left : edge == 1 ? right : edge == 2 ? top : bottom;
        const bool vertical = edge < 2;
        const double t = vertical ? (at - a.x) / (b.x - a.x) : (at - a.y) / (b.y - a.y);
        return vertical ? MapPixel{at, a.y + t * (b.y - a.y)} : MapPixel{a.x + t * (b.x - a.x), at};
    }
};

// Sutherland-Hodgman against each edge of the box in turn: the outline's part inside.
std::vector<MapPixel> clipPolygon(std::vector<MapPixel> outline, const ClipBox& box) {
    for (int edge = 0; edge < 4 && !outline.empty(); ++edge) {
        std::vector<MapPixel> kept;
        for (size_t i = 0; i < outline.size(); ++i) {
            const MapPixel& a = outline[(i + outline.size() - 1) % outline.size()];
            const MapPixel& b = outline[i];
            const bool aIn = box.inside(a, edge), bIn = box.inside(b, edge);
            if (aIn != bIn)
                kept.push_back(box.crossing(a, b, edge));
            if (bIn)
                kept.push_back(b);
        }
        outline.swap(kept);
    }
    return outline;
}

// A segment's part inside the box (Liang-Barsky); false when none is.
bool clipSegment(MapPixel& a, MapPixel& b, const ClipBox& box) {
    double t0 = 0.0, t1 = 1.0;
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double p[4] = {-dx, dx, -dy, dy};
    const double q[4] = {a.x - box.left, box.right - a.x, a.y - box.top, box.bottom - a.y};
    for (int i = 0; i < 4; ++i) {
        if (p[i] == 0.0) {
            if (q[i] < 0.0)
                return false;
            continue;
        }
        const double t = q[i] / p[i];
        if (p[i] < 0.0)
            t0 = std::max(t0, t);
        else
            t1 = std::min(t1, t);
        if (t0 > t1)
            return false;
    }
    const MapPixel start{a.x + t0 * dx, a.y + t0 * dy}, end{a.x + t1 * dx, a.y + t1 * dy};
    a = start;
    b = end;
    return true;
}

// 1, 2 or 5 times a power of ten, at most `limit`.
double roundLength(double limit) {
    const double power = std::pow(10.0, std::floor(std::log10(limit)));
    for (double step : {5.0, 2.0, 1.0}) {
        if (step * power <= limit)
            return step * power;
    }
    return power;
}

std::string lengthText(double metres) {
    char text[32];
    if (metres >= 1000.0)
        std::snprintf(text, sizeof(text), "%g km", metres / 1000.0);
    else
        std::snprintf(text, sizeof(text), "%g m", metres);
    return text;
}

}  // namespace

MapCanvas::MapCanvas(const MapGrid& grid)
    : grid_(grid),
      surface_(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, grid.width, grid.height),
               cairo_surface_destroy),
      cairo_(cairo_create(surface_.get()), cairo_destroy),
      cellColumns_((grid.width + pointCell - 1) / pointCell),
      cellRows_((grid.height + pointCell - 1) / pointCell) {
    std::string problem;
    if (!ok(problem))
        return;
    occupied_.assign(static_cast<size_t>(cellColumns_) * cellRows_, 0);
    setColour(mapBackground);
    cairo_paint(cairo_.get());
    cairo_set_line_join(cairo_.get(), CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_cap(cairo_.get(), CAIRO_LINE_CAP_ROUND);
}

bool MapCanvas::ok(std::string& problem) const {
    const cairo_status_t status = cairo_surface_status(surface_.get()) != CAIRO_STATUS_SUCCESS
                                      ? cairo_surface_status(surface_.get())
                                      : cairo_status(cairo_.get());
    if (status == CAIRO_STATUS_SUCCESS)
        return true;
    problem = std::string("the picture cannot be made: ") + cairo_status_to_string(status);
    return false;
}

void MapCanvas::setColour(const MapColour& c, double alpha) {
    cairo_set_source_rgba(cairo_.get(), c.r, c.g, c.b, alpha);
}

void MapCanvas::paintGround(const std::vector<uint32_t>& pixels) {
    if (pixels.size() != static_cast<size_t>(grid_.width) * grid_.height)
        return;
    // Cairo reads the pixels in place; ARGB32 rows are whole 32-bit words, no padding.
    cairo_surface_t* ground = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(const_cast<uint32_t*>(pixels.data())), CAIRO_FORMAT_ARGB32,
        grid_.width, grid_.height, grid_.width * 4);
    cairo_set_source_surface(cairo_.get(), ground, 0.0, 0.0);
    cairo_paint(cairo_.get());
    cairo_surface_destroy(ground);
}

// The vertices in pixels, those that are not finite left out.
std::vector<MapPixel> MapCanvas::pixelsOf(const std::vector<PlanePoint>& vertices) const {
    std::vector<MapPixel> pixels;
    pixels.reserve(vertices.size());
    for (const PlanePoint& v : vertices) {
        const MapPixel p{px(v), py(v)};
        if (std::isfinite(p.x) && std::isfinite(p.y))
            pixels.push_back(p);
    }
    return pixels;
}

void MapCanvas::outlinePath(const std::vector<PlanePoint>& outline) {
    const ClipBox box{-clipMargin, -clipMargin, grid_.width + clipMargin,
                      grid_.height + clipMargin};
    cairo_new_path(cairo_.get());
    for (const MapPixel& p : clipPolygon(pixelsOf(outline), box))
        cairo_line_to(cairo_.get(), p.x, p.y);
    cairo_close_path(cairo_.get());
}

void MapCanvas::linePath(const std::vector<PlanePoint>& vertices) {
    const ClipBox box{-clipMargin, -clipMargin, grid_.width + clipMargin,
                      grid_.height + clipMargin};
    const std::vector<MapPixel> pixels = pixelsOf(vertices);
    cairo_new_path(cairo_.get());
    for (size_t i = 1; i < pixels.size(); ++i) {
        MapPixel a = pixels[i - 1], b = pixels[i];
        if (!clipSegment(a, b, box))
            continue;
        double x, y;
        const bool joined = cairo_has_current_point(cairo_.get()) &&
                            (cairo_get_current_point(cairo_.get(), &x, &y), x == a.x && y == a.y);
        if (!joined)
            cairo_move_to(cairo_.get(), a.x, a.y);
        cairo_line_to(cairo_.get(), b.x, b.y);
    }
}

void MapCanvas::area(const std::vector<PlanePoint>& outline, const MapColour& colour) {
    outlinePath(outline);
    setColour(colour, 0.35);
    cairo_fill_preserve(cairo_.get());
    setColour(colour);
    cairo_set_line_width(cairo_.get(), 1.2);
    cairo_stroke(cairo_.get());
}

void MapCanvas::line(const std::vector<PlanePoint>& vertices, const MapColour& colour) {
    linePath(vertices);
    setColour(colour);
    cairo_set_line_width(cairo_.get(), 1.8);
    cairo_stroke(cairo_.get());
}

bool MapCanvas::point(const PlanePoint& where, const MapColour& colour) {
    const double x = px(where), y = py(where);
    if (!(x >= 0.0 && y >= 0.0 && x < grid_.width && y < grid_.height))
        return false;
    uint8_t& cell = occupied_[static_cast<size_t>(y / pointCell) * cellColumns_ +
                              static_cast<size_t>(x / pointCell)];
    if (cell)
        return false;
    cell = 1;
    // The marker is drawn once per colour and copied to the pixel the point is in: a
    // million arcs would each be tessellated.
    const double left = std::floor(x) - spriteSize / 2, top = std::floor(y) - spriteSize / 2;
    cairo_t* cr = cairo_.get();
    cairo_set_source_surface(cr, markerSprite(colour), left, top);
    cairo_rectangle(cr, left, top, spriteSize, spriteSize);
    cairo_fill(cr);
    return true;
}

cairo_surface_t* MapCanvas::markerSprite(const MapColour& colour) {
    const uint32_t key = static_cast<uint32_t>(colour.red()) << 16 |
                         static_cast<uint32_t>(colour.green()) << 8 | colour.blue();
    auto found = sprites_.find(key);
    if (found != sprites_.end())
        return found->second.get();
    Surface sprite(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, spriteSize, spriteSize),
                   cairo_surface_destroy);
    cairo_t* cr = cairo_create(sprite.get());
    cairo_arc(cr, spriteSize / 2.0, spriteSize / 2.0, markerRadius, 0.0, 2.0 * M_PI);
    cairo_set_source_rgb(cr, colour.r, colour.g, colour.b);
    cairo_fill_preserve(cr);
    cairo_set_source_rgba(cr, inkColour.r, inkColour.g, inkColour.b, 0.8);
    cairo_set_line_width(cr, 0.8);
    cairo_stroke(cr);
    cairo_destroy(cr);
    return sprites_.emplace(key, std::move(sprite)).first->second.get();
}

bool MapCanvas::prop(const PlanePoint& where, const PlanePoint& ahead, const MapColour& colour) {
    const double x = px(where), y = py(where);
    if (!(x >= 0.0 && y >= 0.0 && x < grid_.width && y < grid_.height))
        return false;
    cairo_t* cr = cairo_.get();
    cairo_new_path(cr);
    cairo_rectangle(cr, x - propHalfSide, y - propHalfSide, 2 * propHalfSide, 2 * propHalfSide);
    setColour(colour);
    cairo_fill_preserve(cr);
    setColour(inkColour);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
    // The tick starts at the square's edge, so the square's middle keeps the rule's colour.
    const double dx = px(ahead) - x, dy = py(ahead) - y;
    const double length = std::hypot(dx, dy);
    if (!(length > 0.0) || !std::isfinite(length))
        return true;
    cairo_move_to(cr, x + dx / length * (propHalfSide + 1.0),
                  y + dy / length * (propHalfSide + 1.0));
    cairo_line_to(cr, x + dx / length * 12.0, y + dy / length * 12.0);
    cairo_set_line_width(cr, 2.0);
    cairo_stroke(cr);
    return true;
}

void MapCanvas::tile(const PlanePoint corners[4], const std::string& label) {
    const std::vector<PlanePoint> outline(corners, corners + 4);
    // A pale casing under a dark line: seen on dark ground and light alike.
    outlinePath(outline);
    cairo_set_source_rgba(cairo_.get(), 1, 1, 1, 0.6);
    cairo_set_line_width(cairo_.get(), 3.0);
    cairo_stroke_preserve(cairo_.get());
    setColour(tileLineColour, 0.9);
    cairo_set_line_width(cairo_.get(), 1.0);
    cairo_stroke(cairo_.get());
    // A label only where it fits inside its tile, and only for tiles in the picture.
    const std::vector<MapPixel> pixels = pixelsOf(outline);
    if (pixels.size() != 4 || labels_.size() >= labelLimit)
        return;
    double left = pixels[0].x, right = left, top = pixels[0].y, bottom = top, cx = 0, cy = 0;
    for (const MapPixel& p : pixels) {
        left = std::min(left, p.x);
        right = std::max(right, p.x);
        top = std::min(top, p.y);
        bottom = std::max(bottom, p.y);
        cx += p.x / 4;
        cy += p.y / 4;
    }
    const double room = 6.0 * label.size() + 6.0;
    const bool fits = right - left > room && bottom - top > 16.0;
    const bool inside = cx > 0 && cy > 0 && cx < grid_.width && cy < grid_.height;
    if (fits && inside)
        labels_.push_back({cx, cy, label});
}

void MapCanvas::labelTiles() {
    cairo_t* cr = cairo_.get();
    cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, 9.0);
    for (const Label& label : labels_) {
        cairo_text_extents_t extents;
        cairo_text_extents(cr, label.text.c_str(), &extents);
        cairo_new_path(cr);
        cairo_move_to(cr, label.x - extents.width / 2 - extents.x_bearing,
                      label.y + extents.height / 2);
        cairo_text_path(cr, label.text.c_str());
        cairo_set_source_rgba(cr, 1, 1, 1, 0.9);
        cairo_set_line_width(cr, 2.5);
        cairo_stroke_preserve(cr);
        setColour(tileLineColour);
        cairo_fill(cr);
    }
    labels_.clear();
}

void MapCanvas::legend(const std::vector<LegendEntry>& entries) {
    if (entries.empty())
        return;
    cairo_t* cr = cairo_.get();
    cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, 11.0);
    const double rowHeight = 15.0, swatch = 22.0, pad = 6.0;
    double widest = 0.0;
    std::vector<std::string> texts;
    for (const LegendEntry& entry : entries) {
        texts.push_back(printable(entry.text));
        cairo_text_extents_t extents;
        cairo_text_extents(cr, texts.back().c_str(), &extents);
        widest = std::max(widest, extents.x_advance);
    }
    const double width = pad * 2 + swatch + widest;
    const double height = pad * 2 + rowHeight * entries.size();
    const double left = 8.0, top = grid_.height - 22.0 - height;
    cairo_new_path(cr);
    cairo_rectangle(cr, left, top, width, height);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.85);
    cairo_fill(cr);
    for (size_t i = 0; i < entries.size(); ++i) {
        const LegendEntry& e = entries[i];
        const double x = left + pad, y = top + pad + rowHeight * i + rowHeight / 2;
        cairo_new_path(cr);
        switch (e.swatch) {
            case LegendEntry::Point:
                cairo_arc(cr, x + 8, y, markerRadius, 0, 2 * M_PI);
                setColour(e.colour);
                cairo_fill(cr);
                break;
            case LegendEntry::Line:
            case LegendEntry::Tile:
                cairo_move_to(cr, x, y);
                cairo_line_to(cr, x + 16, y);
                setColour(e.colour);
                cairo_set_line_width(cr, e.swatch == LegendEntry::Line ? 1.8 : 1.0);
                cairo_stroke(cr);
                break;
            case LegendEntry::Area:
                cairo_rectangle(cr, x, y - 5, 16, 10);
                setColour(e.colour, 0.35);
                cairo_fill_preserve(cr);
                setColour(e.colour);
                cairo_set_line_width(cr, 1.2);
                cairo_stroke(cr);
                break;
            case LegendEntry::Prop:
                cairo_rectangle(cr, x + 8 - propHalfSide, y - propHalfSide, 2 * propHalfSide,
                                2 * propHalfSide);
                setColour(e.colour);
                cairo_fill(cr);
                break;
            case LegendEntry::Ramp: {
                cairo_pattern_t* ramp = cairo_pattern_create_linear(x, 0, x + 16, 0);
                for (double t = 0.0; t <= 1.0; t += 0.25) {
                    const MapColour c = elevationColour(t);
                    cairo_pattern_add_color_stop_rgb(ramp, t, c.r, c.g, c.b);
                }
                cairo_rectangle(cr, x, y - 5, 16, 10);
                cairo_set_source(cr, ramp);
                cairo_fill(cr);
                cairo_pattern_destroy(ramp);
                break;
            }
            case LegendEntry::None:
                break;
        }
        cairo_move_to(cr, x + swatch, y + 4);
        setColour(inkColour);
        cairo_show_text(cr, texts[i].c_str());
    }
}

void MapCanvas::furniture(const Furniture& furniture) {
    cairo_t* cr = cairo_.get();
    const std::string title = printable(furniture.title);
    if (!title.empty()) {
        cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
        cairo_set_font_size(cr, 15.0);
        cairo_text_extents_t extents;
        cairo_text_extents(cr, title.c_str(), &extents);
        cairo_new_path(cr);
        cairo_rectangle(cr, 8, 8, extents.x_advance + 12, 24);
        cairo_set_source_rgba(cr, 1, 1, 1, 0.85);
        cairo_fill(cr);
        cairo_move_to(cr, 14, 25);
        setColour(inkColour);
        cairo_show_text(cr, title.c_str());
    }
    const std::string scene = printable(furniture.sceneText);
    cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, 9.0);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, scene.c_str(), &extents);
    cairo_new_path(cr);
    cairo_rectangle(cr, 0, grid_.height - 16, extents.x_advance + 16, 16);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.85);
    cairo_fill(cr);
    cairo_move_to(cr, 8, grid_.height - 5);
    setColour(inkColour);
    cairo_show_text(cr, scene.c_str());
    northArrow(furniture);
    scaleBar(furniture);
}

void MapCanvas::northArrow(const Furniture& furniture) {
    cairo_t* cr = cairo_.get();
    const double x = grid_.width - 26.0, y = 14.0;
    cairo_new_path(cr);
    cairo_move_to(cr, x, y);
    cairo_line_to(cr, x + 8, y + 26);
    cairo_line_to(cr, x, y + 20);
    cairo_line_to(cr, x - 8, y + 26);
    cairo_close_path(cr);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.85);
    cairo_set_line_width(cr, 3.0);
    cairo_stroke_preserve(cr);
    setColour(inkColour);
    cairo_fill(cr);
    cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(cr, 11.0);
    cairo_move_to(cr, x - 4, y + 40);
    cairo_show_text(cr, "N");
    if (furniture.gridNorth) {
        cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(cr, 8.0);
        cairo_move_to(cr, x - 8, y + 50);
        cairo_show_text(cr, "grid");
    }
}

void MapCanvas::scaleBar(const Furniture& furniture) {
    const double metresPerPixel = grid_.pixelWidth() * furniture.metresPerUnitX;
    if (!(metresPerPixel > 0.0) || !std::isfinite(metresPerPixel))
        return;
    const double metres = roundLength(metresPerPixel * grid_.width / 5.0);
    const double length = metres / metresPerPixel;
    cairo_t* cr = cairo_.get();
    const double right = grid_.width - 12.0, bottom = grid_.height - 24.0;
    const double left = right - length;
    cairo_new_path(cr);
    cairo_rectangle(cr, left - 6, bottom - 20, length + 12, 28);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.85);
    cairo_fill(cr);
    for (int half = 0; half < 2; ++half) {
        cairo_rectangle(cr, left + half * length / 2, bottom - 4, length / 2, 5);
        setColour(half == 0 ? inkColour : MapColour{1, 1, 1});
        cairo_fill_preserve(cr);
        setColour(inkColour);
        cairo_set_line_width(cr, 1.0);
        cairo_stroke(cr);
    }
    cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, 10.0);
    const std::string text = lengthText(metres);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, text.c_str(), &extents);
    cairo_move_to(cr, right - extents.x_advance, bottom - 8);
    cairo_show_text(cr, text.c_str());
}

bool MapCanvas::writePng(const std::string& path, std::string& problem) {
    if (!ok(problem))
        return false;
    cairo_surface_flush(surface_.get());
    const cairo_status_t status = cairo_surface_write_to_png(surface_.get(), path.c_str());
    if (status != CAIRO_STATUS_SUCCESS) {
        problem = std::string("cannot be written: ") + cairo_status_to_string(status);
        return false;
    }
    return true;
}
