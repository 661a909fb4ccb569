#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "PluginLibrary.h"
#include "gdb/DtVectorDataInitializer.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"
#include "zorCore/DtPropAdder.h"
#include "zorTerrain/DtOpenFlightHeaderParser.h"
#include "zorTerrain/DtTdbFeatureAdder.h"
#include "zorTerrain/DtTdbFeatureFieldValueReader.h"
#include "zorTerrain/DtTdbPropAdder.h"
#include "zorTerrain/zorTerrain.h"

using namespace kelZor;

namespace {

struct Row {
    const char* name;
    std::vector<std::string> extensions;
};

// Every header parser the plug-in may register, in the order it must register them.
const std::vector<Row>& registrationTable() {
    static const std::vector<Row> table = {
        {"DtTerrainToolkitHeaderParser",
         {"gdb", "dt0", "dt1", "dt2", "c4b", "c7b", "c7l", "shp", "dfd"}},
        {"DtOpenFlightHeaderParser", {"flt"}},
        {"DtMetaFlightHeaderParser", {"mft"}},
        {"DtSorrelKslHeaderParser", {"ksl"}},
        {"DtTerrainProjectHeaderParser", {}},
        {"DtGeoTiffHeaderParser", {"tif", "tiff"}},
        {"DtWktHeaderParser", {"osg", "ive", "medf"}},
        {"DtImageHeaderParser", {"jpeg", "jpg", "bmp", "png", "gif", "rgb"}},
    };
    return table;
}

std::vector<std::string> extensionsOf(DtHeaderParserFactory& factory, const std::string& name) {
    std::vector<std::string> result;
    for (const auto& [extension, owner] : factory.registeredExtensions()) {
        if (owner == name)
            result.push_back(extension);
    }
    return result;
}

// The registrations of one DtDe, as text, to compare two states.
std::string snapshot(DtDe& de) {
    DtHeaderParserFactory& factory = DtHeaderParserFactory::instance(de);
    std::string text;
    for (const std::string& name : factory.registeredNames())
        text += name + ";";
    for (const auto& [extension, name] : factory.registeredExtensions()) {
        text += extension + "=" + name + ";";
    }
    const DtFeatureFieldValueReader* reader =
        DtFeatureFieldValueReaderFactory::instance(de).defaultReader();
    text += std::string("reader=") + (reader ? typeid(*reader).name() : "none") + ";";
    for (const std::string& extension : DtPropAdderFactory::instance(de).extensions())
        text += "props:" + extension + ";";
    const DtFeatureAdderCreator* adders = de.featureAdderCreator();
    text += std::string("adders=") + (adders ? typeid(*adders).name() : "none") + ";";
    return text;
}

}  // namespace

TEST(PluginInit, registersTheTableRowsInOrderWithTheirExtensions) {
    DtDe de;
    zorTerrain::init(de);
    DtHeaderParserFactory& factory = DtHeaderParserFactory::instance(de);
    const std::vector<std::string>& names = factory.registeredNames();
    for (const char* required : {"DtOpenFlightHeaderParser", "DtMetaFlightHeaderParser",
                                 "DtGeoTiffHeaderParser", "DtImageHeaderParser"}) {
        EXPECT_NE(std::find(names.begin(), names.end(), required), names.end()) << required;
    }
    size_t tableRow = 0;
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        while (tableRow < registrationTable().size() &&
               registrationTable()[tableRow].name != name) {
            ++tableRow;
        }
        ASSERT_LT(tableRow, registrationTable().size()) << "registered out of order or unknown";
        EXPECT_EQ(extensionsOf(factory, name), registrationTable()[tableRow].extensions);
    }
    // Extensions, in registration order, follow the rows' order too.
    std::vector<std::string> expectedExtensions;
    for (const std::string& name : names) {
        for (const std::string& e : extensionsOf(factory, name))
            expectedExtensions.push_back(e);
    }
    std::vector<std::string> actualExtensions;
    for (const auto& entry : factory.registeredExtensions())
        actualExtensions.push_back(entry.first);
    EXPECT_EQ(actualExtensions, expectedExtensions);
}

TEST(PluginInit, aSecondCallChangesNothingAndEachDtDeGetsEverything) {
    DtDe first("/etc/first");
    zorTerrain::init(first);
    EXPECT_EQ(DtVectorDataInitializer::defaultDfadConfigDirectory(), "/etc/first/importConfig");
    const std::string registered = snapshot(first);
    const void* reader = DtFeatureFieldValueReaderFactory::instance(first).defaultReader();
    const void* adders = first.featureAdderCreator();

    // Had the guard failed, the new directory would be set and creators replaced.
    first.configurationService().setConfigurationDirectory("/etc/changed");
    zorTerrain::init(first);
    EXPECT_EQ(DtVectorDataInitializer::defaultDfadConfigDirectory(), "/etc/first/importConfig");
    EXPECT_EQ(snapshot(first), registered);
    EXPECT_EQ(DtFeatureFieldValueReaderFactory::instance(first).defaultReader(), reader);
    EXPECT_EQ(first.featureAdderCreator(), adders);

    DtDe second("");
    zorTerrain::init(second);
    EXPECT_EQ(snapshot(second), registered);
    // A static of the vector library: the last DtDe wins, and an empty directory is
    // used as it comes.
    EXPECT_EQ(DtVectorDataInitializer::defaultDfadConfigDirectory(), "/importConfig");
}

TEST(PluginInit, theFactoryChoosesByExtensionWhateverItsCase) {
    DtDe de;
    zorTerrain::init(de);
    DtHeaderParserFactory& factory = DtHeaderParserFactory::instance(de);
    std::unique_ptr<DtHeaderParser> flt(factory.createHeaderParser("/x/Tile.FLT"));
    EXPECT_NE(dynamic_cast<DtOpenFlightHeaderParser*>(flt.get()), nullptr);
    ASSERT_NE(flt, nullptr);
    EXPECT_EQ(flt->filePath(), "/x/Tile.FLT");
    EXPECT_EQ(factory.parserNameForPath("a.tiff"), "DtGeoTiffHeaderParser");
    EXPECT_EQ(factory.parserNameForPath("a.MFT"), "DtMetaFlightHeaderParser");
    EXPECT_EQ(factory.parserNameForPath("a.medf"), "DtWktHeaderParser");
    EXPECT_EQ(factory.parserNameForPath("a.jpeg"), "DtImageHeaderParser");
    EXPECT_EQ(factory.createHeaderParser("/x/noextension"), nullptr);
    EXPECT_EQ(factory.createHeaderParser("/x/model.unknown"), nullptr);
    EXPECT_EQ(factory.createHeaderParser("/x.flt/name"), nullptr);
    EXPECT_NE(dynamic_cast<const DtTdbFeatureFieldValueReader*>(
                  DtFeatureFieldValueReaderFactory::instance(de).defaultReader()),
              nullptr);
    EXPECT_NE(dynamic_cast<const DtTdbFeatureAdderCreator*>(de.featureAdderCreator()), nullptr);
    // Five prop adder creators, each an object of its own.
    DtPropAdderFactory& props = DtPropAdderFactory::instance(de);
    EXPECT_EQ(props.extensions(), (std::vector<std::string>{"gdb", "shp", "dfd", "c7b", "c7l"}));
    EXPECT_NE(dynamic_cast<DtTdbPropAdderCreator*>(props.creatorForFile("a.SHP")), nullptr);
    EXPECT_NE(props.creatorForFile("a.shp"), props.creatorForFile("a.gdb"));
    EXPECT_EQ(props.creatorForFile("a.dt1"), nullptr);
}

TEST(PluginInit, theEntryIsFoundByItsExportedNameAfterDlopen) {
    PluginLibrary plugin;
    std::string error;
    ASSERT_TRUE(plugin.load(ZOR_PLUGIN_PATH, error)) << error;
    DtDe de;
    plugin.init()(de);
    plugin.init()(de);
    DtDe linked;
    zorTerrain::init(linked);
    EXPECT_EQ(snapshot(de), snapshot(linked));

    PluginLibrary missing;
    EXPECT_FALSE(missing.load("/nonexistent/libzorTerrain.so", error));
    EXPECT_NE(error.find("/nonexistent/libzorTerrain.so"), std::string::npos);
}
