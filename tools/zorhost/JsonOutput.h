// zorhost's JSON output, on nlohmann/json. Keys keep the order they were added in, so a
// record reads in the order a person expects. Long arrays are written element by
// element, so a million records are never held at once.
//
//   JsonArrayStream records(std::cout);
//   records.add(Json{{"level", 0}, {"path", path}});
//   records.close();
#pragma once

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>

using Json = nlohmann::ordered_json;

// Compact text. Bytes that are not UTF-8 (a file name may hold any) become U+FFFD
// rather than failing the whole output.
std::string jsonText(const Json& value);

class JsonArrayStream {
public:
    explicit JsonArrayStream(std::ostream& out);
    ~JsonArrayStream();
    JsonArrayStream(const JsonArrayStream&) = delete;
    JsonArrayStream& operator=(const JsonArrayStream&) = delete;

    void add(const Json& element);
    // Ends the array; later calls do nothing.
    void close();

private:
    std::ostream& out_;
    bool empty_ = true;
    bool closed_ = false;
};
