// The zorhost commands that answer questions about MetaFlight documents: describe,
// tiles and convert. They use the plug-in's exported MetaFlight classes directly, as
// an engine that links the library would. Each answers an exit status: 0 on success,
// 1 when the document or a query fails (the message goes to `err`).
#pragma once

#include <ostream>
#include <string>

struct TilesRequest {
    std::string document;
    std::string dataset;
    int level = -1;  // every level when negative
    bool json = false;
};

struct ConvertRequest {
    std::string document;
    std::string from;
    std::string to;
    double values[3] = {0.0, 0.0, 0.0};
};

int runDescribe(const std::string& document, bool json, std::ostream& out, std::ostream& err);
int runTiles(const TilesRequest& request, std::ostream& out, std::ostream& err);
int runConvert(const ConvertRequest& request, std::ostream& out, std::ostream& err);
