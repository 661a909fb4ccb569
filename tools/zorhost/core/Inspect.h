// `zorhost inspect`: asks the engine's header parsers about terrain files, as the
// engine itself does, and tells a person (or a program, with JSON) what they answered.
#pragma once

#include <list>
#include <ostream>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "kelArchives/DtModelDefinitionRecord.h"

namespace kelZor {
class DtDe;
}

// What the parser road gave for one path.
struct InspectResult {
    std::string path;
    std::string parser;  // registered name; empty when no extension fits
    bool valid = false;
    std::string coordinateSystem;
    std::string parameters;
    std::list<kelArchives::DtTerrainPatchRecord> patches;
    std::string problem;  // why it is not valid, for a person; empty when valid
};

// The registered name of the parser zorhost asks for `path`: by its extension, else, for
// the file kinds zorhost knows them by, a parser the engine reaches by name only (".meta"
// the metafile parser, ".tproj" the terrain project parser, when registered); "" when
// none fits.
std::string parserNameFor(kelZor::DtDe& de, const std::string& path);

// Walks createHeaderParser (or, with `parserName`, the parser registered under that
// name), isValid and the accessors for one path. A terrain project is asked from its own
// directory, as a terrain tool opens a project. Never throws: an exception from isValid
// becomes the result's problem.
InspectResult inspectPath(kelZor::DtDe& de, const std::string& path,
                          const std::string& parserName = "");

// The engine's kind for a parser's coordinate system text ("Flat Earth" is FlatEarth).
std::string kindOf(const std::string& type);

// The result as `inspect --json` gives it.
Json inspectJson(const InspectResult& result);
