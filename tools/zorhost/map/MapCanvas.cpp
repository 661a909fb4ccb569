// The map's Cairo canvas: ground, features, props, tiles and every marginal element
// (legend, scale bar, north arrow, title) drawn on one surface. Kept in one file since
// the marginal elements place themselves where the marks leave room, reading the same
// record of what was drawn where.
#include "MapCanvas.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <set>

#include "CheckedFile.h"
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
      ground_(nullptr, cairo_surface_destroy),
      picture_(nullptr, cairo_surface_destroy),
      cairo_(cairo_create(surface_.get()), cairo_destroy),
      cellColumns_((grid.width + pointCell - 1) / pointCell),
      cellRows_((grid.height + pointCell - 1) / pointCell) {
    std::string problem;
    if (!ok(problem))
        return;
    // Marks go on a layer of their own over the ground, so that what they cover can be
    // told from the ground when the furniture looks for room.
    occupied_.assign(static_cast<size_t>(cellColumns_) * cellRows_, 0);
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
    ground_.reset(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, grid_.width, grid_.height));
    if (cairo_surface_status(ground_.get()) != CAIRO_STATUS_SUCCESS)
        return;
    cairo_surface_flush(ground_.get());
    unsigned char* data = cairo_image_surface_get_data(ground_.get());
    const int stride = cairo_image_surface_get_stride(ground_.get());
    for (int row = 0; row < grid_.height; ++row)
        std::copy_n(pixels.data() + static_cast<size_t>(row) * grid_.width, grid_.width,
                    reinterpret_cast<uint32_t*>(data + static_cast<size_t>(row) * stride));
    cairo_surface_mark_dirty(ground_.get());
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

void MapCanvas::outlinePath(const std::vector<PlanePoint>& outline, bool crisp) {
    const ClipBox box{-clipMargin, -clipMargin, grid_.width + clipMargin,
                      grid_.height + clipMargin};
    cairo_new_path(cairo_.get());
    for (const MapPixel& p : clipPolygon(pixelsOf(outline), box)) {
        // A thin line through pixel centres covers whole pixels rather than two halves.
        if (crisp)
            cairo_line_to(cairo_.get(), std::floor(p.x) + 0.5, std::floor(p.y) + 0.5);
        else
            cairo_line_to(cairo_.get(), p.x, p.y);
    }
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
    outlinePath(outline, true);
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

void MapCanvas::tileCoverage(const std::vector<PlanePoint>& outline) {
    outlinePath(outline);
    setColour(tileLineColour, 0.12);
    cairo_fill_preserve(cairo_.get());
    cairo_set_source_rgba(cairo_.get(), 1, 1, 1, 0.6);
    cairo_set_line_width(cairo_.get(), 3.0);
    cairo_stroke_preserve(cairo_.get());
    setColour(tileLineColour, 0.9);
    cairo_set_line_width(cairo_.get(), 1.5);
    cairo_stroke(cairo_.get());
}

void MapCanvas::tileLine(const std::vector<PlanePoint>& vertices) {
    linePath(vertices);
    setColour(tileLineColour, 0.7);
    cairo_set_line_width(cairo_.get(), 0.8);
    cairo_stroke(cairo_.get());
}

void MapCanvas::tileCell(const PlanePoint corners[4], const MapColour& colour) {
    // The cell in its colour, its edge a shade darker, so that neighbours of one state
    // still show as tiles.
    outlinePath(std::vector<PlanePoint>(corners, corners + 4));
    setColour(colour);
    cairo_fill_preserve(cairo_.get());
    setColour({colour.r * 0.8, colour.g * 0.8, colour.b * 0.8});
    cairo_set_line_width(cairo_.get(), 0.6);
    cairo_stroke(cairo_.get());
}

void MapCanvas::cellImage(const TileStates& cells, const PlanePoint& northWest,
                          const PlanePoint& northEast, const PlanePoint& southWest) {
    const unsigned largest = 16384;
    const unsigned block =
        std::max(1u, (std::max(cells.rows, cells.columns) + largest - 1) / largest);
    const int width = static_cast<int>((cells.columns + block - 1) / block);
    const int height = static_cast<int>((cells.rows + block - 1) / block);
    Surface image(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height),
                  cairo_surface_destroy);
    if (cairo_surface_status(image.get()) != CAIRO_STATUS_SUCCESS)
        return;
    cairo_surface_flush(image.get());
    unsigned char* data = cairo_image_surface_get_data(image.get());
    const int stride = cairo_image_surface_get_stride(image.get());
    // The image's top row is the grid's last (northern) row; a block shows its worst tile.
    std::vector<uint8_t> worst(static_cast<size_t>(width));
    for (int y = 0; y < height; ++y) {
        std::fill(worst.begin(), worst.end(), 0);
        for (unsigned r = 0; r < block; ++r) {
            const int64_t row = static_cast<int64_t>(cells.rows) - 1 - (y * int64_t{block} + r);
            if (row < 0)
                break;
            for (unsigned col = 0; col < cells.columns; ++col) {
                uint8_t& w = worst[col / block];
                w = std::max(w, cells.at(static_cast<unsigned>(row), col));
            }
        }
        uint32_t* pixels = reinterpret_cast<uint32_t*>(data + static_cast<size_t>(y) * stride);
        for (int x = 0; x < width; ++x) {
            const MapColour c = tileStateColour(worst[static_cast<size_t>(x)]);
            pixels[x] = 0xFF000000u | static_cast<uint32_t>(c.red()) << 16 |
                        static_cast<uint32_t>(c.green()) << 8 | static_cast<uint32_t>(c.blue());
        }
    }
    cairo_surface_mark_dirty(image.get());
    const double nwX = px(northWest), nwY = py(northWest);
    cairo_matrix_t toPicture;
    cairo_matrix_init(&toPicture, (px(northEast) - nwX) / width, (py(northEast) - nwY) / width,
                      (px(southWest) - nwX) / height, (py(southWest) - nwY) / height, nwX, nwY);
    cairo_matrix_t inverse = toPicture;
    if (cairo_matrix_invert(&inverse) != CAIRO_STATUS_SUCCESS)
        return;  // the grid folds to a line in the picture: nothing to show
    cairo_t* cr = cairo_.get();
    cairo_save(cr);
    cairo_transform(cr, &toPicture);
    cairo_set_source_surface(cr, image.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_NEAREST);
    cairo_new_path(cr);
    cairo_rectangle(cr, 0, 0, width, height);
    cairo_fill(cr);
    cairo_restore(cr);
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

// ---------------------------------------------------------------- furniture

namespace {

const double framePad = 8.0;       // between the frame's edge and a corner's furniture
const double legendRow = 15.0;     // pixels a legend line takes
const double legendSwatch = 22.0;  // the swatch's room before a legend line's text
const double legendPad = 6.0;
const double arrowWidth = 40.0, arrowHeight = 56.0;
const double footRow = 14.0;  // the scene's line under the scale bar

// A legend line's swatch, as the mark it stands for looks in the frame.
void drawSwatch(cairo_t* cr, const LegendEntry& e, const std::vector<MapColour>& ramp, double x,
                double y) {
    auto colour = [cr](const MapColour& c, double alpha = 1.0) {
        cairo_set_source_rgba(cr, c.r, c.g, c.b, alpha);
    };
    cairo_new_path(cr);
    switch (e.swatch) {
        case LegendEntry::Point:
            cairo_arc(cr, x + 8, y, markerRadius, 0, 2 * M_PI);
            colour(e.colour);
            cairo_fill(cr);
            break;
        case LegendEntry::Line:
        case LegendEntry::Tile:
            cairo_move_to(cr, x, y);
            cairo_line_to(cr, x + 16, y);
            colour(e.colour);
            cairo_set_line_width(cr, e.swatch == LegendEntry::Line ? 1.8 : 1.0);
            cairo_stroke(cr);
            break;
        case LegendEntry::Area:
            cairo_rectangle(cr, x, y - 5, 16, 10);
            colour(e.colour, 0.35);
            cairo_fill_preserve(cr);
            colour(e.colour);
            cairo_set_line_width(cr, 1.2);
            cairo_stroke(cr);
            break;
        case LegendEntry::Prop:
            cairo_rectangle(cr, x + 8 - propHalfSide, y - propHalfSide, 2 * propHalfSide,
                            2 * propHalfSide);
            colour(e.colour);
            cairo_fill(cr);
            break;
        case LegendEntry::Ramp: {
            if (ramp.empty())
                break;
            cairo_pattern_t* pattern = cairo_pattern_create_linear(x, 0, x + 16, 0);
            for (size_t i = 0; i < ramp.size(); ++i) {
                const double at = ramp.size() > 1 ? static_cast<double>(i) / (ramp.size() - 1) : 0;
                cairo_pattern_add_color_stop_rgb(pattern, at, ramp[i].r, ramp[i].g, ramp[i].b);
            }
            cairo_rectangle(cr, x, y - 5, 16, 10);
            cairo_set_source(cr, pattern);
            cairo_fill(cr);
            cairo_pattern_destroy(pattern);
            break;
        }
        case LegendEntry::None:
            break;
    }
}

const double footWidest = 260.0;  // pixels: the scene's line wraps beyond

// Lines of at most `width` pixels in the current font, broken after a space or a comma
// (a scene's numbers are comma separated); a word longer than a line is left whole.
std::vector<std::string> wrapped(cairo_t* cr, const std::string& text, double width) {
    std::vector<std::string> lines;
    std::string line, word;
    auto fits = [&](const std::string& candidate) {
        cairo_text_extents_t extents;
        cairo_text_extents(cr, candidate.c_str(), &extents);
        return extents.x_advance <= width;
    };
    auto place = [&] {
        if (!line.empty() && !fits(line + word)) {
            lines.push_back(line);
            line.clear();
        }
        line += word;
        word.clear();
    };
    for (char c : text) {
        word += c;
        if (c == ' ' || c == ',')
            place();
    }
    place();
    if (!line.empty())
        lines.push_back(line);
    return lines;
}

// Each assignment of the pieces to distinct corners, in order: the first is the pieces'
// own corners.
void assignments(size_t pieces, std::vector<std::vector<int>>& out) {
    std::vector<int> corners = {0, 1, 2, 3};
    do {
        std::vector<int> chosen(corners.begin(), corners.begin() + pieces);
        if (std::find(out.begin(), out.end(), chosen) == out.end())
            out.push_back(chosen);
    } while (std::next_permutation(corners.begin(), corners.end()));
}

}  // namespace

const char* legendPlacementName(LegendPlacement placement) {
    switch (placement) {
        case LegendPlacement::Outside:
            return "outside";
        case LegendPlacement::Corner:
            return "corner";
        case LegendPlacement::None:
            return "none";
        default:
            return "auto";
    }
}

void MapCanvas::measure(const Furniture& furniture, std::vector<Piece>& pieces) {
    cairo_t* cr = cairo_.get();
    cairo_text_extents_t extents;
    const std::string title = printable(furniture.title);
    if (!title.empty()) {
        cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
        cairo_set_font_size(cr, 15.0);
        cairo_text_extents(cr, title.c_str(), &extents);
        pieces.push_back({Piece::Title, extents.x_advance + 12, 24, 0});
    }
    pieces.push_back({Piece::NorthArrow, arrowWidth, arrowHeight, 1});
    if (furniture.placement != LegendPlacement::None && !furniture.legend.empty()) {
        cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(cr, 11.0);
        double widest = 0.0;
        for (const LegendEntry& entry : furniture.legend) {
            cairo_text_extents(cr, printable(entry.text).c_str(), &extents);
            widest = std::max(widest, extents.x_advance);
        }
        pieces.push_back({Piece::Legend, legendPad * 2 + legendSwatch + widest,
                          legendPad * 2 + legendRow * furniture.legend.size(), 2});
    }
    cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, 9.0);
    const double bar = scaleBarLength(furniture) + 12;
    const double width = std::max(bar, footWidest);
    double widest = 0.0;
    sceneLines_ = wrapped(cr, printable(furniture.sceneText), width - 12);
    for (const std::string& line : sceneLines_) {
        cairo_text_extents(cr, line.c_str(), &extents);
        widest = std::max(widest, extents.x_advance);
    }
    pieces.push_back(
        {Piece::Foot, std::max(bar, widest + 12), 28 + footRow * sceneLines_.size(), 3});
}

// Pixels of placed marks a box of the frame would hide.
size_t MapCanvas::marksUnder(double left, double top, double width, double height) const {
    const int x0 = std::max(0, static_cast<int>(std::floor(left)));
    const int y0 = std::max(0, static_cast<int>(std::floor(top)));
    const int x1 = std::min(grid_.width, static_cast<int>(std::ceil(left + width)));
    const int y1 = std::min(grid_.height, static_cast<int>(std::ceil(top + height)));
    cairo_surface_flush(surface_.get());
    const unsigned char* data = cairo_image_surface_get_data(surface_.get());
    const int stride = cairo_image_surface_get_stride(surface_.get());
    size_t count = 0;
    for (int y = y0; y < y1; ++y) {
        const uint32_t* row =
            reinterpret_cast<const uint32_t*>(data + static_cast<size_t>(y) * stride);
        for (int x = x0; x < x1; ++x)
            count += (row[x] >> 24) >= 24 ? 1 : 0;  // faint halos and casings do not count
    }
    return count;
}

void MapCanvas::cornerOf(const Piece& piece, int corner, double& left, double& top) const {
    left = corner % 2 == 0 ? framePad : grid_.width - framePad - piece.width;
    top = corner < 2 ? framePad : grid_.height - framePad - piece.height;
}

// The corners that hide the fewest marks; `hidden` is how many they hide, or more than
// any picture has when a piece does not fit the frame.
std::vector<int> MapCanvas::bestCorners(const std::vector<Piece>& pieces, size_t& hidden) const {
    const size_t tooLarge = std::numeric_limits<size_t>::max() / 8;
    std::vector<std::array<size_t, 4>> cost(pieces.size());
    for (size_t i = 0; i < pieces.size(); ++i) {
        for (int corner = 0; corner < 4; ++corner) {
            double left, top;
            cornerOf(pieces[i], corner, left, top);
            const bool fits = left >= 0 && top >= 0 &&
                              pieces[i].width + 2 * framePad <= grid_.width &&
                              pieces[i].height + 2 * framePad <= grid_.height;
            cost[i][corner] =
                fits ? marksUnder(left, top, pieces[i].width, pieces[i].height) : tooLarge;
        }
    }
    std::vector<std::vector<int>> candidates;
    std::vector<int> own;
    for (const Piece& piece : pieces)
        own.push_back(piece.corner);
    candidates.push_back(own);
    assignments(pieces.size(), candidates);
    std::vector<int> best;
    hidden = std::numeric_limits<size_t>::max();
    for (const std::vector<int>& corners : candidates) {
        std::set<int> distinct(corners.begin(), corners.end());
        if (distinct.size() != corners.size())
            continue;
        size_t total = 0;
        for (size_t i = 0; i < pieces.size(); ++i)
            total += cost[i][corners[i]];
        if (total < hidden) {
            hidden = total;
            best = corners;
        }
    }
    return best;
}

void MapCanvas::finish(const Furniture& furniture) {
    std::string problem;
    if (!ok(problem))
        return;
    std::vector<Piece> pieces;
    measure(furniture, pieces);
    size_t hidden = 0;
    const std::vector<int> corners = bestCorners(pieces, hidden);
    outside_ = furniture.placement == LegendPlacement::Outside ||
               (furniture.placement != LegendPlacement::Corner && hidden > 0);
    double panelWidth = 0.0, panelHeight = framePad;
    for (const Piece& piece : pieces) {
        panelWidth = std::max(panelWidth, piece.width + 2 * framePad);
        panelHeight += piece.height + framePad;
    }
    pictureWidth_ = grid_.width + (outside_ ? static_cast<int>(std::ceil(panelWidth)) : 0);
    pictureHeight_ =
        outside_ ? std::max(grid_.height, static_cast<int>(std::ceil(panelHeight))) : grid_.height;
    picture_.reset(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, pictureWidth_, pictureHeight_));
    std::unique_ptr<cairo_t, void (*)(cairo_t*)> cr(cairo_create(picture_.get()), cairo_destroy);
    if (cairo_status(cr.get()) != CAIRO_STATUS_SUCCESS)
        return;
    cairo_set_source_rgb(cr.get(), outside_ ? 1.0 : mapBackground.r,
                         outside_ ? 1.0 : mapBackground.g, outside_ ? 1.0 : mapBackground.b);
    cairo_paint(cr.get());
    cairo_rectangle(cr.get(), 0, 0, grid_.width, grid_.height);
    cairo_set_source_rgb(cr.get(), mapBackground.r, mapBackground.g, mapBackground.b);
    cairo_fill(cr.get());
    cairo_surface_flush(surface_.get());
    if (ground_) {
        cairo_set_source_surface(cr.get(), ground_.get(), 0, 0);
        cairo_paint(cr.get());
    }
    cairo_set_source_surface(cr.get(), surface_.get(), 0, 0);
    cairo_paint(cr.get());
    if (outside_) {
        // The frame's edge, and the panel beside it.
        cairo_rectangle(cr.get(), grid_.width + 0.5, 0, 0, pictureHeight_);
        cairo_set_source_rgb(cr.get(), inkColour.r, inkColour.g, inkColour.b);
        cairo_set_line_width(cr.get(), 1.0);
        cairo_stroke(cr.get());
    }
    double stacked = framePad;
    for (size_t i = 0; i < pieces.size(); ++i) {
        double left, top;
        if (outside_) {
            left = grid_.width + framePad;
            top = stacked;
            stacked += pieces[i].height + framePad;
        } else {
            cornerOf(pieces[i], corners[i], left, top);
        }
        drawPiece(cr.get(), pieces[i], furniture, left, top);
    }
}

void MapCanvas::drawPiece(cairo_t* cr, const Piece& piece, const Furniture& furniture, double left,
                          double top) const {
    if (!outside_) {
        cairo_new_path(cr);
        cairo_rectangle(cr, left, top, piece.width, piece.height);
        cairo_set_source_rgba(cr, 1, 1, 1, 0.85);
        cairo_fill(cr);
    }
    switch (piece.kind) {
        case Piece::Title:
            cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
            cairo_set_font_size(cr, 15.0);
            cairo_move_to(cr, left + 6, top + 17);
            cairo_set_source_rgb(cr, inkColour.r, inkColour.g, inkColour.b);
            cairo_show_text(cr, printable(furniture.title).c_str());
            break;
        case Piece::NorthArrow:
            northArrow(cr, left + arrowWidth / 2, top + 4, furniture.gridNorth);
            break;
        case Piece::Legend:
            legend(cr, furniture, left, top);
            break;
        case Piece::Foot:
            scaleBar(cr, furniture, left + piece.width - 6, top + 24);
            cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL,
                                   CAIRO_FONT_WEIGHT_NORMAL);
            cairo_set_font_size(cr, 9.0);
            cairo_set_source_rgb(cr, inkColour.r, inkColour.g, inkColour.b);
            for (size_t i = 0; i < sceneLines_.size(); ++i) {
                cairo_move_to(cr, left + 6, top + 28 + footRow * (i + 1) - 4);
                cairo_show_text(cr, sceneLines_[i].c_str());
            }
            break;
    }
}

void MapCanvas::legend(cairo_t* cr, const Furniture& furniture, double left, double top) const {
    cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, 11.0);
    for (size_t i = 0; i < furniture.legend.size(); ++i) {
        const LegendEntry& e = furniture.legend[i];
        const double x = left + legendPad, y = top + legendPad + legendRow * i + legendRow / 2;
        drawSwatch(cr, e, furniture.ramp, x, y);
        cairo_move_to(cr, x + legendSwatch, y + 4);
        cairo_set_source_rgb(cr, inkColour.r, inkColour.g, inkColour.b);
        cairo_show_text(cr, printable(e.text).c_str());
    }
}

void MapCanvas::northArrow(cairo_t* cr, double x, double y, bool gridNorth) const {
    cairo_new_path(cr);
    cairo_move_to(cr, x, y);
    cairo_line_to(cr, x + 8, y + 26);
    cairo_line_to(cr, x, y + 20);
    cairo_line_to(cr, x - 8, y + 26);
    cairo_close_path(cr);
    cairo_set_source_rgba(cr, 1, 1, 1, 0.85);
    cairo_set_line_width(cr, 3.0);
    cairo_stroke_preserve(cr);
    cairo_set_source_rgb(cr, inkColour.r, inkColour.g, inkColour.b);
    cairo_fill(cr);
    cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(cr, 11.0);
    cairo_move_to(cr, x - 4, y + 40);
    cairo_show_text(cr, "N");
    if (gridNorth) {
        cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(cr, 8.0);
        cairo_move_to(cr, x - 8, y + 50);
        cairo_show_text(cr, "grid");
    }
}

double MapCanvas::scaleBarLength(const Furniture& furniture) const {
    const double metresPerPixel = grid_.pixelWidth() * furniture.metresPerUnitX;
    if (!(metresPerPixel > 0.0) || !std::isfinite(metresPerPixel))
        return 0.0;
    return roundLength(metresPerPixel * grid_.width / 5.0) / metresPerPixel;
}

void MapCanvas::scaleBar(cairo_t* cr, const Furniture& furniture, double right,
                         double bottom) const {
    const double length = scaleBarLength(furniture);
    if (!(length > 0.0))
        return;
    const double metres = length * grid_.pixelWidth() * furniture.metresPerUnitX;
    const double left = right - length;
    for (int half = 0; half < 2; ++half) {
        cairo_rectangle(cr, left + half * length / 2, bottom - 4, length / 2, 5);
        const MapColour fill = half == 0 ? inkColour : MapColour{1, 1, 1};
        cairo_set_source_rgb(cr, fill.r, fill.g, fill.b);
        cairo_fill_preserve(cr);
        cairo_set_source_rgb(cr, inkColour.r, inkColour.g, inkColour.b);
        cairo_set_line_width(cr, 1.0);
        cairo_stroke(cr);
    }
    cairo_select_font_face(cr, fontFamily, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, 10.0);
    const std::string text = lengthText(std::round(metres * 1e6) / 1e6);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, text.c_str(), &extents);
    cairo_move_to(cr, right - extents.x_advance, bottom - 8);
    cairo_show_text(cr, text.c_str());
}

cairo_surface_t* MapCanvas::picture() {
    if (!picture_)
        finish({});
    cairo_surface_flush(picture_.get());
    return picture_.get();
}

bool MapCanvas::writePng(const std::string& path, std::string& problem) {
    if (!ok(problem))
        return false;
    cairo_surface_t* surface = picture();
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        problem = std::string("the picture cannot be made: ") +
                  cairo_status_to_string(cairo_surface_status(surface));
        return false;
    }
    CheckedFile file;
    const auto write = [](void* closure, const unsigned char* data, unsigned int length) {
        return static_cast<CheckedFile*>(closure)->write(data, length) ? CAIRO_STATUS_SUCCESS
                                                                       : CAIRO_STATUS_WRITE_ERROR;
    };
    const cairo_status_t status = file.open(path)
                                      ? cairo_surface_write_to_png_stream(surface, write, &file)
                                      : CAIRO_STATUS_WRITE_ERROR;
    if (!file.close() || status != CAIRO_STATUS_SUCCESS) {
        problem = "cannot be written: " +
                  (file.failed() ? file.problem() : std::string(cairo_status_to_string(status)));
        return false;
    }
    return true;
}
