// Builds MetaFlight documents for tests: one geometry dataset "D" over coverage "C" with
// grid structure "S" and switch table "T", in systems the test chooses.
#pragma once

#include <string>

struct MetaFlightDocument {
    // Top-level coordinate systems; "G" is the grid's, `dataSystem` the data's.
    std::string systems =
        "<Ellipsoid name=\"E\"/>"
        "<ProjectedCoordSys name=\"G\"><UnitsCategory>LINEAR_DISTANCE</UnitsCategory>"
        "<HorizontalDatumUsed refTo=\"E\"/><UTM><Zone>32</Zone></UTM></ProjectedCoordSys>";
    std::string dataSystem = "G";
    std::string origin = "<X>1000</X><Y>2000</Y>";
    std::string extent = "<X>600</X><Y>400</Y>";
    // GridLevel divisions, as "cols x rows" per level.
    std::string gridLevels = level("L0", 3, 2) + level("L1", 2, 2);
    std::string geometryLevels = geometryLevel("LOCALIZED") + geometryLevel("LOCALIZED_DEPENDENT");
    std::string datasetChildren = "<DatasetName>terrain</DatasetName><FileFormat>medf</FileFormat>";
    std::string pattern = "$(DSNAME)/L%02d$(LEVEL)/tile_%03d$(ROW)_%03d$(COL).$(FILEFORMAT)";
    std::string more;  // further top-level elements

    static std::string level(const std::string& name, int cols, int rows) {
        return "<GridLevel><LevelName>" + name + "</LevelName><NumColDivisions>" +
               std::to_string(cols) + "</NumColDivisions><NumRowDivisions>" + std::to_string(rows) +
               "</NumRowDivisions></GridLevel>";
    }
    static std::string geometryLevel(const std::string& localized) {
        return "<GeometryGridLevel><LocalizedType>" + localized +
               "</LocalizedType><SwitchOut_DistanceUsed refTo=\"far\"/>"
               "<SwitchIn_DistanceUsed refTo=\"near\"/></GeometryGridLevel>";
    }

    std::string text() const {
        return "<MetaFlightRoot><Database>" + systems + "<GridStructure name=\"S\">" + gridLevels +
               "</GridStructure><Coverage name=\"C\"><CoordSysUsed refTo=\"G\"/><Origin>" + origin +
               "</Origin><Extent>" + extent +
               "</Extent></Coverage><SwitchDistanceTable name=\"T\">"
               "<SwitchDistance name=\"near\"><Value>100</Value></SwitchDistance>"
               "<SwitchDistance "
               "name=\"far\"><Value>900</Value></SwitchDistance></SwitchDistanceTable>"
               "<GeometryGridDataset name=\"D\">" +
               datasetChildren + "<CoordSysUsed refTo=\"" + dataSystem +
               "\"/><SwitchDistanceTableUsed refTo=\"T\"/><GridStack>"
               "<GridStructureUsed refTo=\"S\"/><CoverageUsed refTo=\"C\"/><FileNamePattern>" +
               pattern + "</FileNamePattern></GridStack>" + geometryLevels +
               "</GeometryGridDataset>" + more + "</Database></MetaFlightRoot>";
    }
};
