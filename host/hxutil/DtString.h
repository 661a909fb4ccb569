// DtString: the engine's general text class. An 8-bit string with the small set of
// searches, cuts and conversions that terrain code needs.
//
//   DtString name("tile_012.flt");
//   int dot = name.findLastChar('.');         // 8
//   bool ok = false;
//   int n = DtString("12").toInt(&ok);        // 12, ok == true
//
// Positions are int; -1 means "not found". Nothing reads past the end of the text: an
// index out of range answers '\0' or an empty text.
#pragma once

#include <string>
#include <vector>

class DtString {
public:
    DtString() = default;
    DtString(const char* text);  // null gives the empty text
    DtString(const std::string& text);
    explicit DtString(int value);
    // The shortest text that reads back to the same double: 45.5 gives "45.5".
    explicit DtString(double value);
    DtString(const DtString&) = default;
    DtString& operator=(const DtString&) = default;
    virtual ~DtString() = default;

    virtual const char* c_str() const { return text_.c_str(); }
    virtual const std::string& string() const { return text_; }
    virtual const std::string& stdString() const { return text_; }
    virtual int size() const { return static_cast<int>(text_.size()); }
    virtual int length() const { return static_cast<int>(text_.size()); }
    virtual bool isEmpty() const { return text_.empty(); }

    bool operator==(const char* other) const;
    bool operator!=(const char* other) const { return !(*this == other); }
    bool operator==(const DtString& other) const { return text_ == other.text_; }
    bool operator!=(const DtString& other) const { return text_ != other.text_; }
    bool operator<(const DtString& other) const { return text_ < other.text_; }
    // <0, 0 or >0 as strcasecmp, for ASCII letters.
    int caseCompare(const char* other) const;

    DtString operator+(const DtString& other) const;
    DtString& operator+=(const DtString& other);
    DtString& operator+=(const char* other);
    DtString& operator+=(char c);
    // The character at index, or '\0' out of range.
    char operator[](int index) const;

    // Removes the text before the first `c`, and the `c` too unless `keepChar`.
    // Answers false, changing nothing, when `c` does not occur.
    bool snipFront(char c, bool keepChar);
    // Removes the text after the last `c`, and the `c` too unless `keepChar`.
    bool snipBack(char c, bool keepChar);
    // Remove leading or trailing white space.
    DtString& chompFront();
    DtString& chompBack();

    int findChar(char c, int from = 0) const;
    int findLastChar(char c) const;
    int findString(const char* text, int from = 0) const;
    int findLastString(const char* text) const;

    // Fields `first` to `last` (inclusive, from 0) of the text split at `separator`,
    // joined by it again. A negative `last` means "to the end".
    DtString section(char separator, int first, int last = -1) const;
    // Splits at `separator`, skipping empty fields as strtok does; answers the count.
    int tokenize(char separator, std::vector<DtString>& tokens) const;
    int count(char c) const;

    DtString toUpper() const;
    DtString toLower() const;

    // Conversions of the whole text (surrounding white space allowed). On failure they
    // answer 0 (false) and set *ok to false.
    int toInt(bool* ok = nullptr) const;
    unsigned toUInt(bool* ok = nullptr) const;
    float toFloat(bool* ok = nullptr) const;
    double toDouble(bool* ok = nullptr) const;
    // "true", "yes", "on", "1" and "false", "no", "off", "0", in any case.
    bool toBoolean(bool* ok = nullptr) const;

protected:
    std::string text_;
};

// Shortest round-trip text of a double, as DtString(double) gives it.
std::string DtShortestDouble(double value);
