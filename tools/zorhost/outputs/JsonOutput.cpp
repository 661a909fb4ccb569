#include "JsonOutput.h"

std::string jsonText(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

JsonArrayStream::JsonArrayStream(std::ostream& out) : out_(out) {
    out_ << "[";
}

JsonArrayStream::~JsonArrayStream() {
    close();
}

void JsonArrayStream::add(const Json& element) {
    out_ << (empty_ ? "\n" : ",\n") << jsonText(element);
    empty_ = false;
}

void JsonArrayStream::close() {
    if (closed_)
        return;
    closed_ = true;
    out_ << (empty_ ? "]\n" : "\n]\n");
    out_.flush();
}
