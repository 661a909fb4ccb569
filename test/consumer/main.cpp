// Asks the installed plug-in about an installed sample file, through the registries.
#include <iostream>
#include <memory>

#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/zorTerrain.h"

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    kelZor::DtDe de;
    kelZor::zorTerrain::init(de);
    std::unique_ptr<kelZor::DtHeaderParser> parser(
        kelZor::DtHeaderParserFactory::instance(de).createHeaderParser(argv[1]));
    if (!parser || !parser->isValid())
        return 1;
    kelZor::DtMetaFlightParser document;
    std::string error;
    if (!document.openFile(argv[2], "", error))
        return 1;
    kelZor::DtMetaFlightDescription description;
    description.parse(document);
    std::cout << parser->terrainCoordinateSystem() << " " << description.numberOfGeometryDatasets()
              << "\n";
    return 0;
}
