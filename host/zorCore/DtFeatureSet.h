// Features of a feature layer: points (a location, dimensions and an optional heading),
// lines and areas (their vertices), each with the feature identifier, the feature code
// and the id of the network object it came from. The set keeps them in the order they
// were created.
//
//   DtPointFeature* tree = layer.featureSet().createPointFeature(17, DtFaccCode("EC030"), 4);
//   tree->setLocation(DtVector64(x, y, z));
//   layer.featureSet().forEach([](const DtFeature& f) { ... });
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "matrix/DtVector64.h"

namespace kelZor {

// A feature code: two letters and a number, built from texts like "AL015".
class DtFaccCode {
public:
    DtFaccCode() = default;
    DtFaccCode(char first, char second, uint16_t number)
        : first_(first), second_(second), number_(number) {}
    // Letters from characters 0 and 1, the number as atoi reads the text from its third
    // character, cut to 16 bits. A text shorter than two characters gives NUL letters.
    explicit DtFaccCode(const char* text);

    char firstLetter() const { return first_; }
    char secondLetter() const { return second_; }
    uint16_t number() const { return number_; }
    // Letters and number as a person writes them: "AL15".
    std::string text() const;

    bool operator==(const DtFaccCode& o) const {
        return first_ == o.first_ && second_ == o.second_ && number_ == o.number_;
    }
    bool operator!=(const DtFaccCode& o) const { return !(*this == o); }

private:
    char first_ = '\0';
    char second_ = '\0';
    uint16_t number_ = 0;
};

class DtFeature {
public:
    enum Kind : uint8_t { Point, Linear, Areal };

    DtFeature(unsigned int featureId, const DtFaccCode& code, unsigned int id)
        : featureId_(featureId), code_(code), id_(id) {}

    unsigned int featureId() const { return featureId_; }
    const DtFaccCode& code() const { return code_; }
    // The network object the feature was made from.
    unsigned int id() const { return id_; }

private:
    unsigned int featureId_;
    DtFaccCode code_;
    unsigned int id_;
};

class DtPointFeature : public DtFeature {
public:
    using DtFeature::DtFeature;

    void setLocation(const DtVector64& location) { location_ = location; }
    void setDimensions(const DtVector64& dimensions) { dimensions_ = dimensions; }
    // Heading in radians.
    void setRotation(double radians) {
        rotation_ = radians;
        hasRotation_ = true;
    }

    const DtVector64& location() const { return location_; }
    // Width, length, height.
    const DtVector64& dimensions() const { return dimensions_; }
    // Empty until setRotation was called: "not set" and 0 are different answers.
    std::optional<double> rotation() const {
        return hasRotation_ ? std::optional<double>(rotation_) : std::nullopt;
    }

private:
    // The flag sits in the padding after the base's fields: a million points are 8 MB
    // smaller than with an optional of their own.
    bool hasRotation_ = false;
    DtVector64 location_;
    DtVector64 dimensions_;
    double rotation_ = 0.0;
};

class DtEdgeFeature : public DtFeature {
public:
    using DtFeature::DtFeature;

    void addPoint(const DtVector64& vertex) {
        // Outlines come a vertex at a time: growing by a quarter rather than doubling keeps
        // the copies few and the room held while growing small.
        if (vertices_.size() == vertices_.capacity())
            vertices_.reserve(vertices_.size() + std::max<size_t>(4, vertices_.size() / 4));
        vertices_.push_back(vertex);
    }
    const std::vector<DtVector64>& vertices() const { return vertices_; }

private:
    friend class DtFeatureSet;
    std::vector<DtVector64> vertices_;
};

// An area by its outline, the vertices as given.
class DtArealFeature : public DtEdgeFeature {
public:
    using DtEdgeFeature::DtEdgeFeature;
};

class DtFeatureSet {
public:
    DtFeatureSet() = default;
    // Features are handed out by pointer: the set is neither copied nor moved.
    DtFeatureSet(const DtFeatureSet&) = delete;
    DtFeatureSet& operator=(const DtFeatureSet&) = delete;

    // New features, owned by the set; the pointers stay valid as long as it.
    DtPointFeature* createPointFeature(unsigned int featureId, const DtFaccCode& code,
                                       unsigned int id);
    DtEdgeFeature* createEdgeFeature(unsigned int featureId, const DtFaccCode& code,
                                     unsigned int id);
    DtArealFeature* createArealFeature(unsigned int featureId, const DtFaccCode& code,
                                       unsigned int id);

    size_t size() const { return order_.size(); }
    size_t count(DtFeature::Kind kind) const;

    // Calls onPoint, onLinear or onAreal for each feature, in the order of creation.
    template <typename OnPoint, typename OnLinear, typename OnAreal>
    void forEach(OnPoint onPoint, OnLinear onLinear, OnAreal onAreal) const {
        size_t next[3] = {0, 0, 0};
        for (const DtFeature::Kind kind : order_) {
            const size_t i = next[kind]++;
            if (kind == DtFeature::Point)
                onPoint(points_[i]);
            else if (kind == DtFeature::Linear)
                onLinear(edges_[i]);
            else
                onAreal(areas_[i]);
        }
    }

private:
    // One deque per kind keeps features in place (no per-feature allocation, pointers
    // stable); `order_` remembers how they interleave, a byte per feature.
    std::deque<DtPointFeature> points_;
    std::deque<DtEdgeFeature> edges_;
    std::deque<DtArealFeature> areas_;
    std::vector<DtFeature::Kind> order_;
    // The line or area created last, still growing; once another feature is created it
    // is taken as complete and gives back the room it holds beyond its vertices.
    DtEdgeFeature* growing_ = nullptr;
    void completeGrowing();
};

// A layer of features that names the vector file they come from.
class DtFeatureLayer {
public:
    explicit DtFeatureLayer(std::string filename) : filename_(std::move(filename)) {}
    virtual ~DtFeatureLayer() = default;
    const std::string& filename() const { return filename_; }
    DtFeatureSet& featureSet() { return features_; }
    const DtFeatureSet& featureSet() const { return features_; }

private:
    std::string filename_;
    DtFeatureSet features_;
};

}  // namespace kelZor
