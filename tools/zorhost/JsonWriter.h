// A small streaming JSON writer: values are written as they come, so a long array never
// sits in memory. Text is escaped byte by byte; bytes that are not valid UTF-8 come out
// as \u00XX of the byte.
#pragma once

#include <ostream>
#include <string>
#include <vector>

class JsonWriter {
public:
    explicit JsonWriter(std::ostream& out) : out_(out) {}

    void beginArray();
    void endArray();
    void beginObject();
    void endObject();
    void key(const std::string& name);
    void value(const std::string& text);
    void value(const char* text);
    void value(bool flag);
    void value(double number);
    void value(long long number);
    void null();

    static std::string quoted(const std::string& text);

private:
    void separate();
    std::ostream& out_;
    // One entry per open container: whether it has a member yet.
    std::vector<bool> hasMember_;
    bool afterKey_ = false;
};
