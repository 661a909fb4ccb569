// DtTdbLoadSession: a host tool's window on the loads made on its behalf. The plug-in
// loads files through DtTdbManager and skips what it cannot use in silence, as its
// contract says; a tool that must account for every object opens a session on its
// thread, and every load made on that thread while it lives reads the session's options
// and leaves a report in it:
//
//   DtTdbLoadSession session({/*codeFields*/ {"CODE"}, /*code*/ "AL020", /*srs*/ ""});
//   adder->addFeatures(layer);                 // loads through DtTdbManager
//   for (const DtTdbLoadReport& load : session.reports()) ...
//
// Sessions nest (the inner one is current until it ends) and belong to one thread, so
// tools on several threads each see their own loads. Not for the plug-in: the engine's
// loader has no such thing.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class OGRSpatialReference;

// How many objects share one outcome, and the first of them.
struct DtTdbObjectCount {
    uint64_t count = 0;
    int64_t firstFid = 0;

    void add(int64_t fid) {
        if (count++ == 0)
            firstFid = fid;
    }
};

// One layer of a load: the objects read and, for each reason an object gave the engine
// nothing (or something a person should check), how many and the first.
struct DtTdbLayerReport {
    std::string name;
    std::string codeField;  // the field the codes were read from; empty when none
    uint64_t objects = 0;   // features read, with or without a geometry

    DtTdbObjectCount noGeometry;     // no geometry the terrain can place
    DtTdbObjectCount unplaceable;    // a coordinate the scene cannot hold: left out whole
    DtTdbObjectCount noUsableId;     // an id outside 0 .. 2^31 - 1: no "DtFidCode"
    DtTdbObjectCount noCodeField;    // the layer has no feature-code field
    DtTdbObjectCount emptyCode;      // a null or empty code
    DtTdbObjectCount shortCode;      // one character: no code the engine can read
    DtTdbObjectCount malformedCode;  // two characters or more, not letters then digits
    DtTdbObjectCount codeGiven;      // no code of their own: given the session's code
    DtTdbObjectCount holesDropped;   // areas kept without their holes
    std::string firstMalformedCode;
    // The attribute names the layer's objects carry (fields and the ones the loader
    // derives), so a tool can tell a rule that names none of them.
    std::vector<std::string> attributes;

    // The network identifiers of the nodes and edges the layer made, [firstId, endId),
    // so a tool can tell which layer made which feature.
    uint32_t firstId = 0, endId = 0;
    // Objects that reached the network, by kind of geometry.
    uint64_t points = 0, lines = 0, areas = 0;
};

struct DtTdbLoadReport {
    std::string file;
    std::vector<DtTdbLayerReport> layers;
};

class DtTdbLoadSession {
public:
    struct Options {
        // Fields read for the feature code before the common ones (ECC, F_CODE, FCODE,
        // FACC); given, they are the only ones read.
        std::vector<std::string> codeFields;
        // The code of objects that have none (no code field, or a null or empty code);
        // empty: they keep none.
        std::string code;
        // A coordinate system (anything OSR's SetFromUserInput reads) for layers that
        // have none; empty: such a layer cannot be placed.
        std::string srs;
        // Open options handed to OGR's driver, NAME=VALUE each (a CSV's X_POSSIBLE_NAMES).
        std::vector<std::string> openOptions;
    };

    explicit DtTdbLoadSession(Options options = Options());
    ~DtTdbLoadSession();
    DtTdbLoadSession(const DtTdbLoadSession&) = delete;
    DtTdbLoadSession& operator=(const DtTdbLoadSession&) = delete;

    const Options& options() const { return options_; }
    // The reports of the loads made while this session was current, in order.
    const std::vector<DtTdbLoadReport>& reports() const { return reports_; }

    // The loader's side: this thread's current session, or null.
    static DtTdbLoadSession* current();
    void addReport(DtTdbLoadReport report);

    // The system given to layers without one, in longitude-latitude order; null when none
    // is given or OSR cannot read it.
    std::unique_ptr<OGRSpatialReference> givenSrs() const;

    // Whether `code` reads as a feature code: two letters followed by digits.
    static bool isWellFormedCode(std::string_view code);

private:
    Options options_;
    std::vector<DtTdbLoadReport> reports_;
    DtTdbLoadSession* previous_;
};
