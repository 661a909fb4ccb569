#include "MapStyle.h"

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

MapColour tileStateColour(uint8_t state) {
    static const MapColour colours[] = {
        {0.30, 0.66, 0.32}, {0.86, 0.14, 0.14}, {0.96, 0.60, 0.08},
        {0.56, 0.22, 0.68}, {0.50, 0.50, 0.50}, {0.36, 0.18, 0.10},
    };
    return colours[state < 6 ? state : 5];
}
