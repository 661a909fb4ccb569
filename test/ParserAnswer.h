// What a header parser answers for a file, asked once as the engine asks it.
//
//   const ParserAnswer a = askParser(DtOpenFlightHeaderParser(path));
//   EXPECT_EQ(a.type, DtCoordinateConverter::UTM);
#pragma once

#include <string>

#include "zorCore/DtHeaderParser.h"

struct ParserAnswer {
    bool valid = false;
    std::string type;
    std::string parameters;
    size_t patches = 0;
    std::string patch;  // the file name of the one patch, or ""
};

inline ParserAnswer askParser(kelZor::DtHeaderParser& parser) {
    ParserAnswer answer;
    answer.valid = parser.isValid();
    answer.type = parser.terrainCoordinateSystem();
    answer.parameters = parser.terrainCoordinateSystemParameters();
    const auto& records = parser.terrainPatchRecords();
    answer.patches = records.size();
    if (records.size() == 1)
        answer.patch = records.front().terrainPatchDefinitionRecord().filename();
    return answer;
}

template <typename Parser>
ParserAnswer askParser(Parser&& parser) {
    return askParser(static_cast<kelZor::DtHeaderParser&>(parser));
}
