// `zorhost inspect`: what the engine's header parsers answered of each path, printed for
// a person (or a program, with JSON).
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace kelZor {
class DtDe;
}

// Inspects every path, prints the results to `out` (text or one JSON array) and one
// line per problem to `err`. Answers 0 when every path was valid, else 1.
int runInspect(kelZor::DtDe& de, const std::vector<std::string>& paths, bool json,
               std::ostream& out, std::ostream& err, const std::string& parserName = "");
