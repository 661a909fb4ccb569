#include "zorTerrain/zorTerrain.h"

#include <initializer_list>
#include <string>

#include "gdb/DtVectorDataInitializer.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtFeatureFieldValueReader.h"
#include "zorCore/DtGeoTiffHeaderParser.h"
#include "zorCore/DtHeaderParser.h"
#include "zorCore/DtPropAdder.h"
#include "zorTerrain/DtMetaFlightHeaderParser.h"
#include "zorTerrain/DtOpenFlightHeaderParser.h"
#include "zorTerrain/DtSorrelKslHeaderParser.h"
#include "zorTerrain/DtTdbFeatureAdder.h"
#include "zorTerrain/DtTdbFeatureFieldValueReader.h"
#include "zorTerrain/DtTdbPropAdder.h"
#include "zorTerrain/DtTerrainProjectHeaderParser.h"
#include "zorTerrain/DtTerrainToolkitHeaderParser.h"
#include "zorTerrain/DtWktHeaderParser.h"

namespace kelZor {
namespace zorTerrain {

namespace {

void registerParser(DtHeaderParserFactory& factory, const char* name,
                    DtHeaderParserCreator* creator, std::initializer_list<const char*> extensions) {
    factory.registerCreator(name, creator);
    for (const char* extension : extensions)
        factory.registerExtension(extension, name);
}

void setVectorConfigDirectory(DtDe& de) {
    const std::string directory = de.configurationService().configurationDirectory();
    DtVectorDataInitializer::setDefaultDfadConfigDirectory(DtFilename(directory + "/importConfig"));
}

// Registration order is part of the contract: hosts list parsers in this order.
void registerHeaderParsers(DtDe& de) {
    DtHeaderParserFactory& factory = DtHeaderParserFactory::instance(de);
    registerParser(factory, "DtTerrainToolkitHeaderParser", new DtTerrainToolkitHeaderParserCreator,
                   {"gdb", "dt0", "dt1", "dt2", "c4b", "c7b", "c7l", "shp", "dfd"});
    registerParser(factory, "DtOpenFlightHeaderParser", new DtOpenFlightHeaderParserCreator,
                   {"flt"});
    registerParser(factory, "DtMetaFlightHeaderParser", new DtMetaFlightHeaderParserCreator,
                   {"mft"});
    registerParser(factory, "DtSorrelKslHeaderParser", new DtSorrelKslHeaderParserCreator, {"ksl"});
    registerParser(factory, "DtTerrainProjectHeaderParser", new DtTerrainProjectHeaderParserCreator,
                   {});
    registerParser(factory, "DtGeoTiffHeaderParser", new DtGeoTiffHeaderParserCreator,
                   {"tif", "tiff"});
    registerParser(factory, "DtWktHeaderParser", new DtWktHeaderParserCreator,
                   {"osg", "ive", "medf"});
    registerParser(factory, "DtImageHeaderParser", new DtImageHeaderParserCreator,
                   {"jpeg", "jpg", "bmp", "png", "gif", "rgb"});
}

}  // namespace

void init(DtDe& de) {
    void* const self = reinterpret_cast<void*>(&init);
    if (de.isInitFunctionRegistered(self))
        return;
    de.registerInitFunction(self);

    setVectorConfigDirectory(de);
    DtFeatureFieldValueReaderFactory::instance(de).setDefaultReader(
        new DtTdbFeatureFieldValueReader(de));
    registerHeaderParsers(de);
    for (const char* extension : {"gdb", "shp", "dfd", "c7b", "c7l"})
        DtPropAdderFactory::instance(de).setAdderCreator(extension, new DtTdbPropAdderCreator(de));
    DtFeatureAdderCreator::registerInstance(de, new DtTdbFeatureAdderCreator);
}

}  // namespace zorTerrain
}  // namespace kelZor
