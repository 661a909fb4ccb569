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

// Where a command's records go, one by one: an array streamed as text, or a front
// end's own collection.
class RecordSink {
public:
    virtual ~RecordSink() = default;
    virtual void add(const Json& element) = 0;
    // After the last record; later calls do nothing.
    virtual void close() {}
};

class JsonArrayStream : public RecordSink {
public:
    explicit JsonArrayStream(std::ostream& out);
    ~JsonArrayStream() override;
    JsonArrayStream(const JsonArrayStream&) = delete;
    JsonArrayStream& operator=(const JsonArrayStream&) = delete;

    void add(const Json& element) override;
    // Ends the array; later calls do nothing.
    void close() override;

private:
    std::ostream& out_;
    bool empty_ = true;
    bool closed_ = false;
};
