#include "JsonWriter.h"

#include <cmath>
#include <cstdio>

#include "hxutil/DtString.h"

namespace {

// Length of the valid UTF-8 sequence at text[i], or 0.
size_t utf8Length(const std::string& text, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    size_t length = lead < 0x80           ? 1
                    : (lead >> 5) == 0x6  ? 2
                    : (lead >> 4) == 0xe  ? 3
                    : (lead >> 3) == 0x1e ? 4
                                          : 0;
    if (length == 0 || i + length > text.size())
        return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xc0) != 0x80)
            return 0;
    }
    return length;
}

}  // namespace

std::string JsonWriter::quoted(const std::string& text) {
    std::string result = "\"";
    for (size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        const size_t length = utf8Length(text, i);
        char escape[8];
        if (c == '"' || c == '\\') {
            result += '\\';
            result += static_cast<char>(c);
        } else if (c == '\n') {
            result += "\\n";
        } else if (c == '\t') {
            result += "\\t";
        } else if (c < 0x20 || length == 0) {
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            result += escape;
            i += 1;
            continue;
        } else {
            result.append(text, i, length);
            i += length;
            continue;
        }
        ++i;
    }
    return result + "\"";
}

void JsonWriter::separate() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (!hasMember_.empty()) {
        if (hasMember_.back())
            out_ << ',';
        hasMember_.back() = true;
    }
}

void JsonWriter::beginArray() {
    separate();
    out_ << '[';
    hasMember_.push_back(false);
}

void JsonWriter::endArray() {
    hasMember_.pop_back();
    out_ << ']';
}

void JsonWriter::beginObject() {
    separate();
    out_ << '{';
    hasMember_.push_back(false);
}

void JsonWriter::endObject() {
    hasMember_.pop_back();
    out_ << '}';
}

void JsonWriter::key(const std::string& name) {
    separate();
    out_ << quoted(name) << ':';
    afterKey_ = true;
}

void JsonWriter::value(const std::string& text) {
    separate();
    out_ << quoted(text);
}

void JsonWriter::value(const char* text) {
    value(std::string(text ? text : ""));
}

void JsonWriter::value(bool flag) {
    separate();
    out_ << (flag ? "true" : "false");
}

void JsonWriter::value(double number) {
    separate();
    if (std::isfinite(number)) {
        out_ << DtShortestDouble(number);
    } else {
        out_ << "null";
    }
}

void JsonWriter::value(long long number) {
    separate();
    out_ << number;
}

void JsonWriter::null() {
    separate();
    out_ << "null";
}
