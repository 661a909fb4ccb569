#include "zorCore/DtFeatureSet.h"

#include <cctype>

namespace kelZor {

namespace {

// atoi's reading (spaces, a sign, digits up to the first non-digit), kept modulo 2^16
// as it goes: the low 16 bits of the number written, with no overflow however long.
uint16_t low16BitsOfAtoi(const char* text) {
    while (std::isspace(static_cast<unsigned char>(*text)))
        ++text;
    bool negative = false;
    if (*text == '+' || *text == '-')
        negative = *text++ == '-';
    uint16_t value = 0;
    for (; std::isdigit(static_cast<unsigned char>(*text)); ++text)
        value = static_cast<uint16_t>(value * 10u + static_cast<unsigned>(*text - '0'));
    return negative ? static_cast<uint16_t>(0u - value) : value;
}

}  // namespace

DtFaccCode::DtFaccCode(const char* text) {
    if (!text || !text[0])
        return;
    first_ = text[0];
    second_ = text[1];
    if (text[1])
        number_ = low16BitsOfAtoi(text + 2);
}

std::string DtFaccCode::text() const {
    std::string letters;
    for (const char c : {first_, second_})
        if (c)
            letters += c;
    return letters + std::to_string(number_);
}

DtPointFeature* DtFeatureSet::createPointFeature(unsigned int featureId, const DtFaccCode& code,
                                                 unsigned int id) {
    completeGrowing();
    order_.push_back(DtFeature::Point);
    return &points_.emplace_back(featureId, code, id);
}

DtEdgeFeature* DtFeatureSet::createEdgeFeature(unsigned int featureId, const DtFaccCode& code,
                                               unsigned int id) {
    completeGrowing();
    order_.push_back(DtFeature::Linear);
    return growing_ = &edges_.emplace_back(featureId, code, id);
}

DtArealFeature* DtFeatureSet::createArealFeature(unsigned int featureId, const DtFaccCode& code,
                                                 unsigned int id) {
    completeGrowing();
    order_.push_back(DtFeature::Areal);
    DtArealFeature* area = &areas_.emplace_back(featureId, code, id);
    growing_ = area;
    return area;
}

void DtFeatureSet::completeGrowing() {
    // A vertex added later still lands: the vector just grows again.
    if (growing_)
        growing_->vertices_.shrink_to_fit();
    growing_ = nullptr;
}

size_t DtFeatureSet::count(DtFeature::Kind kind) const {
    switch (kind) {
        case DtFeature::Point:
            return points_.size();
        case DtFeature::Linear:
            return edges_.size();
        case DtFeature::Areal:
            return areas_.size();
    }
    return 0;
}

}  // namespace kelZor
