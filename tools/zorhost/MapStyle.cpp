#include "MapStyle.h"

#include <algorithm>
#include <cctype>

namespace {

const FaccCategory categories[] = {
    {'A', "culture", {0.80, 0.16, 0.16}},      {'B', "hydrography", {0.12, 0.40, 0.85}},
    {'C', "hypsography", {0.55, 0.35, 0.15}},  {'D', "physiography", {0.85, 0.55, 0.10}},
    {'E', "vegetation", {0.10, 0.55, 0.20}},   {'F', "demarcation", {0.55, 0.20, 0.65}},
    {'G', "aeronautical", {0.85, 0.20, 0.60}}, {'I', "cadastral", {0.45, 0.45, 0.45}},
    {'S', "special use", {0.95, 0.80, 0.10}},  {'Z', "general", {0.20, 0.70, 0.75}},
    {'?', "other", {0.30, 0.30, 0.30}},
};

// Distinct from one another and from the FACC colours at a glance: props are squares.
const MapColour ruleColours[] = {
    {1.00, 0.50, 0.00}, {0.60, 0.00, 0.80}, {0.00, 0.60, 0.60}, {0.90, 0.00, 0.45},
    {0.40, 0.25, 0.10}, {0.00, 0.30, 0.70}, {0.50, 0.70, 0.00}, {0.00, 0.00, 0.00},
};

// Greens of the lowlands to the pale rock of the heights; each stop brighter than the
// one before, so brightness alone tells high from low.
const struct {
    double at;
    MapColour colour;
} ramp[] = {
    {0.00, {0.21, 0.43, 0.27}}, {0.30, {0.47, 0.63, 0.35}}, {0.60, {0.77, 0.71, 0.51}},
    {0.85, {0.84, 0.80, 0.75}}, {1.00, {0.98, 0.98, 0.98}},
};

}  // namespace

const size_t faccCategoryCount = sizeof(categories) / sizeof(categories[0]);

const FaccCategory* faccCategories() {
    return categories;
}

const FaccCategory& faccCategory(const std::string& code) {
    const char letter =
        code.empty() ? '?' : static_cast<char>(std::toupper(static_cast<unsigned char>(code[0])));
    for (const FaccCategory& category : categories) {
        if (category.letter == letter)
            return category;
    }
    return categories[faccCategoryCount - 1];
}

MapColour ruleColour(size_t rule) {
    return ruleColours[rule % (sizeof(ruleColours) / sizeof(ruleColours[0]))];
}

MapColour elevationColour(double fraction) {
    const double t = std::clamp(fraction, 0.0, 1.0);
    for (size_t i = 1; i < sizeof(ramp) / sizeof(ramp[0]); ++i) {
        if (t <= ramp[i].at) {
            const double w = (t - ramp[i - 1].at) / (ramp[i].at - ramp[i - 1].at);
            const MapColour& a = ramp[i - 1].colour;
            const MapColour& b = ramp[i].colour;
            return {a.r + (b.r - a.r) * w, a.g + (b.g - a.g) * w, a.b + (b.b - a.b) * w};
        }
    }
    return ramp[sizeof(ramp) / sizeof(ramp[0]) - 1].colour;
}
