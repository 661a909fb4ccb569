#include "InspectCommand.h"

#include <iomanip>
#include <memory>

#include "Inspect.h"
#include "JsonOutput.h"

using kelZor::DtDe;

namespace {

std::string kindText(const std::string& type) {
    if (type.empty())
        return "(none)";
    const std::string kind = kindOf(type);
    return kind == type ? kind : kind + " (the parser's text: \"" + type + "\")";
}

void printText(const InspectResult& r, std::ostream& out) {
    out << r.path << "\n";
    out << "  parser:            " << (r.parser.empty() ? "(none)" : r.parser) << "\n";
    out << "  valid:             " << (r.valid ? "yes" : "no") << "\n";
    if (!r.valid)
        return;
    out << "  coordinate system: " << kindText(r.coordinateSystem) << "\n";
    out << "  parameters:        " << r.parameters << "\n";
    out << "  patches:           " << r.patches.size() << "\n";
    int index = 0;
    for (const kelArchives::DtTerrainPatchRecord& patch : r.patches) {
        const kelArchives::DtModelDefinitionRecord& d = patch.terrainPatchDefinitionRecord();
        out << "    [" << ++index << "] name:              " << d.name() << "\n";
        out << "        file name:         " << d.filename() << "\n";
        out << "        coordinate system: " << kindText(d.coordinateSystem()) << "\n";
        out << "        parameters:        " << d.coordinateSystemParameters() << "\n";
        out << "        schema:            " << d.schema() << "\n";
    }
}

}  // namespace

int runInspect(DtDe& de, const std::vector<std::string>& paths, bool json, std::ostream& out,
               std::ostream& err, const std::string& parserName) {
    bool allValid = true;
    std::unique_ptr<JsonArrayStream> records;
    if (json)
        records = std::make_unique<JsonArrayStream>(out);
    for (const std::string& path : paths) {
        const InspectResult result = inspectPath(de, path, parserName);
        if (!result.valid) {
            allValid = false;
            err << "zorhost: " << path << ": " << result.problem << "\n";
        }
        if (records) {
            records->add(inspectJson(result));
        } else {
            printText(result, out);
        }
    }
    if (records)
        records->close();
    return allValid ? 0 : 1;
}
