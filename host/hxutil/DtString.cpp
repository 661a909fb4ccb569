#include "hxutil/DtString.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}
char lower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}
char upper(char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

std::string trimmed(const std::string& text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isSpace(text[begin]))
        ++begin;
    while (end > begin && isSpace(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

template <typename T>
T fail(bool* ok) {
    if (ok)
        *ok = false;
    return T{};
}

template <typename T>
T succeed(bool* ok, T value) {
    if (ok)
        *ok = true;
    return value;
}

template <typename Int>
Int parseInteger(const std::string& text, bool* ok) {
    const std::string t = trimmed(text);
    const char* first = t.data();
    const char* last = t.data() + t.size();
    if (first != last && *first == '+')
        ++first;
    Int value{};
    auto [end, ec] = std::from_chars(first, last, value);
    if (ec != std::errc() || end != last || first == last)
        return fail<Int>(ok);
    return succeed(ok, value);
}

double parseDouble(const std::string& text, bool* ok) {
    const std::string t = trimmed(text);
    if (t.empty())
        return fail<double>(ok);
    errno = 0;
    char* end = nullptr;
    const double value = std::strtod(t.c_str(), &end);
    // Underflow to a subnormal still reads back the text's value; only overflow fails.
    if (end != t.c_str() + t.size() || (errno == ERANGE && std::isinf(value))) {
        return fail<double>(ok);
    }
    return succeed(ok, value);
}

}  // namespace

std::string DtShortestDouble(double value) {
    char buffer[64];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    if (ec != std::errc())
        return std::string();
    return std::string(buffer, end);
}

DtString::DtString(const char* text) : text_(text ? text : "") {}
DtString::DtString(const std::string& text) : text_(text) {}
DtString::DtString(int value) : text_(std::to_string(value)) {}
DtString::DtString(double value) : text_(DtShortestDouble(value)) {}

bool DtString::operator==(const char* other) const {
    return text_ == (other ? other : "");
}

int DtString::caseCompare(const char* other) const {
    const char* a = text_.c_str();
    const char* b = other ? other : "";
    for (;; ++a, ++b) {
        const int diff = lower(*a) - lower(*b);
        if (diff != 0 || *a == '\0')
            return diff;
    }
}

DtString DtString::operator+(const DtString& other) const {
    return DtString(text_ + other.text_);
}
DtString& DtString::operator+=(const DtString& other) {
    text_ += other.text_;
    return *this;
}
DtString& DtString::operator+=(const char* other) {
    if (other)
        text_ += other;
    return *this;
}
DtString& DtString::operator+=(char c) {
    text_ += c;
    return *this;
}

char DtString::operator[](int index) const {
    if (index < 0 || index >= size())
        return '\0';
    return text_[static_cast<size_t>(index)];
}

bool DtString::snipFront(char c, bool keepChar) {
    const size_t at = text_.find(c);
    if (at == std::string::npos)
        return false;
    text_.erase(0, keepChar ? at : at + 1);
    return true;
}

bool DtString::snipBack(char c, bool keepChar) {
    const size_t at = text_.rfind(c);
    if (at == std::string::npos)
        return false;
    text_.erase(keepChar ? at + 1 : at);
    return true;
}

DtString& DtString::chompFront() {
    size_t begin = 0;
    while (begin < text_.size() && isSpace(text_[begin]))
        ++begin;
    text_.erase(0, begin);
    return *this;
}

DtString& DtString::chompBack() {
    while (!text_.empty() && isSpace(text_.back()))
        text_.pop_back();
    return *this;
}

int DtString::findChar(char c, int from) const {
    if (from < 0 || from > size())
        return -1;
    const size_t at = text_.find(c, static_cast<size_t>(from));
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

int DtString::findLastChar(char c) const {
    const size_t at = text_.rfind(c);
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

int DtString::findString(const char* text, int from) const {
    if (!text || from < 0 || from > size())
        return -1;
    const size_t at = text_.find(text, static_cast<size_t>(from));
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

int DtString::findLastString(const char* text) const {
    if (!text)
        return -1;
    const size_t at = text_.rfind(text);
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

DtString DtString::section(char separator, int first, int last) const {
    if (first < 0)
        return DtString();
    std::string result;
    int field = 0;
    size_t begin = 0;
    bool any = false;
    for (;;) {
        const size_t end = std::min(text_.find(separator, begin), text_.size());
        if (field >= first && (last < 0 || field <= last)) {
            if (any)
                result += separator;
            result.append(text_, begin, end - begin);
            any = true;
        }
        if (end == text_.size() || (last >= 0 && field >= last))
            break;
        begin = end + 1;
        ++field;
    }
    return DtString(result);
}

int DtString::tokenize(char separator, std::vector<DtString>& tokens) const {
    int found = 0;
    size_t begin = 0;
    while (begin <= text_.size()) {
        const size_t end = std::min(text_.find(separator, begin), text_.size());
        if (end > begin) {
            tokens.emplace_back(text_.substr(begin, end - begin));
            ++found;
        }
        begin = end + 1;
    }
    return found;
}

int DtString::count(char c) const {
    return static_cast<int>(std::count(text_.begin(), text_.end(), c));
}

DtString DtString::toUpper() const {
    std::string result(text_);
    std::transform(result.begin(), result.end(), result.begin(), upper);
    return DtString(result);
}

DtString DtString::toLower() const {
    std::string result(text_);
    std::transform(result.begin(), result.end(), result.begin(), lower);
    return DtString(result);
}

int DtString::toInt(bool* ok) const {
    return parseInteger<int>(text_, ok);
}
unsigned DtString::toUInt(bool* ok) const {
    return parseInteger<unsigned>(text_, ok);
}

float DtString::toFloat(bool* ok) const {
    bool parsed = false;
    const double value = parseDouble(text_, &parsed);
    if (!parsed || (std::isfinite(value) && std::fabs(value) > 3.4028234663852886e38)) {
        return fail<float>(ok);
    }
    return succeed(ok, static_cast<float>(value));
}

double DtString::toDouble(bool* ok) const {
    return parseDouble(text_, ok);
}

bool DtString::toBoolean(bool* ok) const {
    const std::string t = DtString(trimmed(text_)).toLower().stdString();
    if (t == "true" || t == "yes" || t == "on" || t == "1")
        return succeed(ok, true);
    if (t == "false" || t == "no" || t == "off" || t == "0")
        return succeed(ok, false);
    return fail<bool>(ok);
}
