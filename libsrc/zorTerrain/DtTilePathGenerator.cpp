#include "zorTerrain/DtTilePathGenerator.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "zorUtil/DtZorFilesystem.h"

namespace kelZor {

using StringOrInt = DtMetaFlightDescription::StringOrInt;

namespace {

bool isFlag(char c) {
    return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0';
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// A width or precision. Leading zeros count for nothing; a value that reaches the
// expansion limit is `limit` (a width or integer precision that large cannot fit).
void readNumber(const std::string& text, size_t& at, int& value) {
    constexpr int limit = static_cast<int>(DtTilePathGenerator::maxExpansion);
    value = 0;
    for (; at < text.size() && isDigit(text[at]); ++at)
        value = std::min(limit, value * 10 + (text[at] - '0'));
}

// Reads one conversion behind its '%'; `at` ends behind it. Any flag C or glibc defines
// is taken; what a flag means for a conversion is printf's. Refused: a conversion that
// does not fit the value, `*`, %n, a length modifier whose argument is not an int, and a
// width, or a precision of a number, that alone reaches the expansion limit.
bool readConversion(const std::string& text, size_t& at, bool textValue,
                    DtTilePathGenerator::Format& format) {
    while (at < text.size() && isFlag(text[at]))
        format.flags += text[at++];
    readNumber(text, at, format.width);
    if (format.width >= static_cast<int>(DtTilePathGenerator::maxExpansion))
        return false;
    if (at < text.size() && text[at] == '.') {
        ++at;
        readNumber(text, at, format.precision);
    }
    // 'h' and "hh" narrow an int argument, so they fit it; no other length does.
    size_t lengthBegin = at;
    while (at < text.size() && text[at] == 'h' && at - lengthBegin < 2)
        ++at;
    format.shortLength = at != lengthBegin;
    if (at >= text.size())
        return false;  // incomplete
    const char conversion = text[at++];
    // A NUL would end the format printf sees: no conversion character at all.
    const bool fits =
        textValue ? conversion == 's' : conversion != '\0' && std::strchr("diuxXoc", conversion);
    if (!fits || (format.shortLength && (conversion == 'c' || conversion == 's')))
        return false;
    if (conversion != 's' && conversion != 'c' &&
        format.precision >= static_cast<int>(DtTilePathGenerator::maxExpansion)) {
        return false;
    }
    format.hasConversion = true;
    format.conversion = conversion;
    return true;
}

void pad(std::string& out, size_t length, int width, char fill) {
    if (width > 0 && length < static_cast<size_t>(width))
        out.append(static_cast<size_t>(width) - length, fill);
}

// printf's %d, %i and %u with the flags '-' and '0' and a width, without printf, into a
// buffer with room for the widest result (the width is under maxExpansion). Inlined into
// the path loop, which calls it for every value of every name.
inline __attribute__((always_inline)) char* writeInteger(char* out,
                                                         const DtTilePathGenerator::Format& f,
                                                         int32_t value) {
    char digits[16];
    const bool negative = f.conversion != 'u' && value < 0;
    const uint32_t magnitude = f.conversion == 'u' ? static_cast<uint32_t>(value)
                               : negative          ? 0u - static_cast<uint32_t>(value)
                                                   : static_cast<uint32_t>(value);
    const size_t count =
        static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, magnitude).ptr - digits);
    const size_t length = count + (negative ? 1 : 0);
    const size_t padding =
        f.width > 0 && length < static_cast<size_t>(f.width) ? f.width - length : 0;
    if (!f.leftAlign && !f.zeroPad) {
        std::memset(out, ' ', padding);
        out += padding;
    }
    if (negative)
        *out++ = '-';
    if (f.zeroPad) {
        std::memset(out, '0', padding);
        out += padding;
    }
    std::memcpy(out, digits, count);
    out += count;
    if (f.leftAlign) {
        std::memset(out, ' ', padding);
        out += padding;
    }
    return out;
}

void appendInteger(std::string& out, const DtTilePathGenerator::Format& f, int32_t value) {
    char buffer[DtTilePathGenerator::maxExpansion + 16];
    out.append(buffer, static_cast<size_t>(writeInteger(buffer, f, value) - buffer));
}

char* copy(char* out, const std::string& text) {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

void appendText(std::string& out, const DtTilePathGenerator::Format& f, const std::string& text) {
    const bool left = f.leftAlign;
    if (!left)
        pad(out, text.size(), f.width, ' ');
    out += text;
    if (left)
        pad(out, text.size(), f.width, ' ');
}

}  // namespace

bool DtTilePathGenerator::parseFormat(const std::string& formatting, bool textValue,
                                      Format& format) {
    format = Format();
    if (formatting.find('%') == std::string::npos) {
        format.before = formatting;
        format.hasConversion = true;
        format.conversion = textValue ? 's' : 'd';
        format.printfFormat = formatting + (textValue ? "%s" : "%d");
        format.native = true;
        return true;
    }
    std::string* literal = &format.before;
    for (size_t at = 0; at < formatting.size();) {
        const char c = formatting[at++];
        if (c != '%') {
            *literal += c;
            continue;
        }
        if (at < formatting.size() && formatting[at] == '%') {
            *literal += '%';
            ++at;
            continue;
        }
        if (format.hasConversion || !readConversion(formatting, at, textValue, format))
            return false;
        literal = &format.after;
    }
    format.printfFormat = formatting;
    format.leftAlign = format.flags.find('-') != std::string::npos;
    format.zeroPad = !format.leftAlign && format.flags.find('0') != std::string::npos;
    const char* nativeFlags = format.conversion == 's' ? "-" : "-0";
    const bool simpleFlags = format.flags.find_first_not_of(nativeFlags) == std::string::npos;
    format.native =
        !format.hasConversion || (format.precision < 0 && !format.shortLength && simpleFlags &&
                                  std::strchr("dius", format.conversion));
    return true;
}

bool DtTilePathGenerator::append(std::string& out, const Format& format, const StringOrInt& value) {
    if (format.native) {
        const size_t start = out.size();
        out += format.before;
        if (format.hasConversion) {
            if (value.isString) {
                appendText(out, format, value.text);
            } else {
                appendInteger(out, format, value.number);
            }
        }
        out += format.after;
        if (out.size() - start >= maxExpansion) {
            out.resize(start);
            return false;
        }
        return true;
    }
    char buffer[maxExpansion];
    const int written =
        value.isString
            ? std::snprintf(buffer, sizeof buffer, format.printfFormat.c_str(), value.text.c_str())
            : std::snprintf(buffer, sizeof buffer, format.printfFormat.c_str(), value.number);
    if (written < 0 || static_cast<size_t>(written) >= sizeof buffer)
        return false;
    // The piece is a C string: a %c of the value 0 ends it.
    out.append(buffer, ::strnlen(buffer, static_cast<size_t>(written)));
    return true;
}

DtTilePathGenerator::PathContext DtTilePathGenerator::pathContext(const std::string& sourceFile) {
    PathContext context;
    context.sourceFile = sourceFile;
    const std::string directory = DtZorFilesystem::directoryOfPath(sourceFile);
    context.prefix = directory + "/";
    for (char& c : context.prefix)
        c = c == '\\' ? '/' : c;
    context.baseName = DtZorFilesystem::baseName(directory) +
                       DtZorFilesystem::extensionCaseSensitive(directory, true);
    return context;
}

std::string DtTilePathGenerator::composePath(const PathContext& context, std::string parsedFile) {
    std::string path = context.prefix;
    for (char& c : parsedFile)
        c = c == '\\' ? '/' : c;
    if (DtZorFilesystem::isAbsolutePath(parsedFile)) {
        path += parsedFile;
        return path;
    }
    // A pattern written relative to the parent of the document's directory begins with
    // that directory's own name, which is not repeated.
    const size_t begin = parsedFile.find_first_not_of('/');
    const size_t end = begin == std::string::npos ? std::string::npos : parsedFile.find('/', begin);
    const size_t rootLength = begin == std::string::npos
                                  ? 0
                                  : (end == std::string::npos ? parsedFile.size() : end) - begin;
    const bool sameName = rootLength == context.baseName.size() &&
                          parsedFile.compare(begin == std::string::npos ? 0 : begin, rootLength,
                                             context.baseName) == 0;
    if (sameName) {
        path.append(parsedFile, rootLength, std::string::npos);
    } else {
        path += parsedFile;
    }
    return path;
}

std::string DtTilePathGenerator::composePath(const std::string& sourceFile,
                                             std::string parsedFile) {
    return composePath(pathContext(sourceFile), std::move(parsedFile));
}

DtTilePathGenerator::DtTilePathGenerator(const DtMetaFlightDescription& description,
                                         const std::string& name, int level)
    : DtTilePathGenerator(description, name, level, description.geometryGridLevelRows(name, level),
                          description.geometryGridLevelColumns(name, level)) {}

DtTilePathGenerator::DtTilePathGenerator(const DtMetaFlightDescription& description,
                                         const std::string& name, int level, unsigned int rows,
                                         unsigned int columns)
    : context_(pathContext(description.fileName())), rows_(rows), columns_(columns) {
    std::map<std::string, StringOrInt> constants;
    constants["LEVELNAME"] = description.geometryGridLevelName(name, level);
    constants["DSNAME"] = description.geometryDatasetName(name);
    constants["DSTITLE"] = description.geometryDatasetTitle(name);
    constants["FILEFORMAT"] = description.geometryDatasetFileFormat(name);
    constants["LEVEL"] = static_cast<int32_t>(level);
    compile(description.geometryDatasetFileNamePattern(name), constants);
}

bool DtTilePathGenerator::splitPattern(const std::string& pattern,
                                       std::vector<Reference>& references, std::string& tail) {
    references.clear();
    size_t position = 0;
    for (size_t start = pattern.find("$("); start != std::string::npos;
         start = pattern.find("$(", position)) {
        const size_t end = pattern.find(')', start);
        if (end == std::string::npos)
            return false;
        references.push_back({pattern.substr(position, start - position),
                              pattern.substr(start + 2, end - start - 2)});
        position = end + 1;
    }
    tail = pattern.substr(position);
    return true;
}

void DtTilePathGenerator::compile(const std::string& pattern,
                                  const std::map<std::string, StringOrInt>& constants) {
    std::vector<Reference> references;
    std::string patternTail;
    if (!splitPattern(pattern, references, patternTail))
        return;
    std::string literal;
    for (const auto& [formatting, variable] : references) {
        const auto constant = constants.find(variable);
        Format format;
        if (constant != constants.end()) {
            if (!parseFormat(formatting, constant->second.isString, format) ||
                !append(literal, format, constant->second)) {
                return;
            }
            continue;
        }
        if (variable != "ROW" && variable != "COL")
            return;
        if (!parseFormat(formatting, false, format))
            return;
        const Variable which = variable == "ROW" ? Variable::Row : Variable::Col;
        // An int32 is at most 11 characters unpadded: when even the widest expansion stays
        // under the limit, the format's literal text joins the constant text around it.
        const size_t widest = format.before.size() + format.after.size() +
                              std::max<size_t>(static_cast<size_t>(format.width), 11);
        if (format.native && widest < maxExpansion) {
            literal += format.before;
            segments_.push_back({literal, format, which, true});
            literal = format.after;
            segments_.back().format.before.clear();
            segments_.back().format.after.clear();
        } else {
            segments_.push_back({literal, format, which, false});
            literal.clear();
        }
    }
    tail_ = literal + patternTail;
    expandable_ = true;

    // The head is fixed when the first path component is: when constant text with a
    // separator comes before any value, and no value is a %c that could be one.
    const std::string& first = segments_.empty() ? tail_ : segments_.front().literal;
    bool characters = false;
    for (const Segment& s : segments_)
        characters = characters || s.format.conversion == 'c';
    fast_ = !characters && (segments_.empty() || first.find_first_of("/\\") != std::string::npos);
    if (!fast_)
        return;
    if (segments_.empty()) {
        head_ = composePath(context_, tail_);
        tail_.clear();
        return;
    }
    head_ = composePath(context_, first);
    segments_.front().literal.clear();
    // When every value is an integer formatted here, a path has a known longest length and
    // is written into a buffer of that size at once.
    size_t longest = head_.size() + tail_.size();
    bool allMerged = true;
    for (const Segment& s : segments_) {
        allMerged = allMerged && s.merged;
        longest += s.literal.size() + std::max<size_t>(static_cast<size_t>(s.format.width), 11);
    }
    buffered_ = allMerged && longest <= bufferSize;
    for (Segment& s : segments_) {
        for (char& c : s.literal)
            c = c == '\\' ? '/' : c;
        for (std::string* text : {&s.format.before, &s.format.after}) {
            for (char& c : *text)
                c = c == '\\' ? '/' : c;
        }
    }
    for (char& c : tail_)
        c = c == '\\' ? '/' : c;
}

bool DtTilePathGenerator::expand(unsigned int row, unsigned int col, std::string& out) const {
    for (const Segment& segment : segments_) {
        out += segment.literal;
        const int32_t value = static_cast<int32_t>(segment.variable == Variable::Row ? row : col);
        if (segment.merged) {
            appendInteger(out, segment.format, value);
            continue;
        }
        const size_t start = out.size();
        if (!append(out, segment.format, StringOrInt(value)))
            return false;
        // The fast road turned the pattern's own backslashes into "/" once; those that
        // a format's literal text brings through snprintf are turned here.
        if (fast_)
            std::replace(out.begin() + static_cast<std::ptrdiff_t>(start), out.end(), '\\', '/');
    }
    out += tail_;
    return true;
}

void DtTilePathGenerator::path(unsigned int row, unsigned int col, std::string& out) const {
    if (!expandable_) {
        out = composePath(context_, std::string());
        return;
    }
    if (buffered_) {
        char buffer[bufferSize];
        char* end = copy(buffer, head_);
        for (const Segment& segment : segments_) {
            end = copy(end, segment.literal);
            const unsigned int value = segment.variable == Variable::Row ? row : col;
            end = writeInteger(end, segment.format, static_cast<int32_t>(value));
        }
        end = copy(end, tail_);
        out.assign(buffer, static_cast<size_t>(end - buffer));
        return;
    }
    if (fast_) {
        out = head_;
        if (!expand(row, col, out))
            out = composePath(context_, std::string());
        return;
    }
    std::string parsedFile;
    if (!expand(row, col, parsedFile))
        parsedFile.clear();
    out = composePath(context_, parsedFile);
}

}  // namespace kelZor
