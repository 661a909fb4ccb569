// Fuzz target: any bytes as a scene text, TYPE:PARAMETERS, as zorhost's --scene takes it
// and as each converter's fromStringRep reads it. No text crashes; a text that is
// accepted gives a converter whose stringRep reads back to an equal converter, and the
// converter survives a round trip of a few positions without a crash.
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "Scene.h"
#include "hxutil/DtException.h"
#include "zorUtil/DtCoordinateSystem.h"

namespace {

void check(bool holds) {
    if (!holds)
        __builtin_trap();
}

void roundTrip(const kelZor::DtCoordinateConverter& converter) {
    for (const DtVector64& cig : {DtVector64(0, 0, 0), DtVector64(500000, 5000000, 100),
                                  DtVector64(-1e7, 1e7, -1e3), DtVector64(1e300, 0, 0)}) {
        DtVector64 geoc, back;
        try {
            converter.cigToGeoc(cig, geoc);
            converter.geocToCig(geoc, back);
        } catch (const DtException&) {
            // A position the converter cannot place: its own family of exception.
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const size_t colon = text.find(':');
    const std::string type = text.substr(0, colon);
    const std::string parameters = colon == std::string::npos ? "" : text.substr(colon + 1);
    try {
        const kelZor::DtCoordinateSystem system(type, parameters);
        const std::string rep = system.converter()->stringRep();
        const kelZor::DtCoordinateSystem again(system.type(), rep);
        check(again.converter()->stringRep() == rep);
        check(*again.converter() == *system.converter());
        roundTrip(*system.converter());
    } catch (const DtException&) {
        // Refused: an unknown type or malformed parameters.
    }
    // zorhost's road to the same text answers a status, never an exception.
    SceneChoice scene;
    const SceneProblem problem = chooseScene(fuzzEngine(), text, {}, scene);
    check(problem.status == 0 || !problem.message.empty());
    return 0;
}
