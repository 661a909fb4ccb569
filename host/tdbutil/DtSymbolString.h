// DtSymbolString: an interned name. Attribute names repeat on every object of a vector
// file, so each distinct text is stored once and a symbol is one pointer. Symbols made
// from a text are stored for the process, and equal texts give equal symbols; a loader
// gives the fields of a file symbols its network stores (stored()), which go with the
// network, so that a process loading file after file of new names does not keep them
// all. Compare those by their text.
//
//   DtSymbolString name("ECC");
//   if (name == DtSymbolString("ECC")) use(name.c_str());
#pragma once

#include <string>

class DtSymbolString {
public:
    DtSymbolString();
    explicit DtSymbolString(const std::string& text);
    explicit DtSymbolString(const char* text);
    // A symbol of a text its owner keeps at least as long as the symbol is used.
    static DtSymbolString stored(const std::string* text);

    const char* c_str() const { return text_->c_str(); }
    const std::string& string() const { return *text_; }
    bool operator==(const DtSymbolString& other) const { return text_ == other.text_; }
    bool operator!=(const DtSymbolString& other) const { return text_ != other.text_; }

private:
    const std::string* text_;
};
