// DtSymbolString: an interned name. Attribute names repeat on every object of a vector
// file, so each distinct text is stored once per process and a symbol is one pointer;
// equal texts give equal symbols.
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

    const char* c_str() const { return text_->c_str(); }
    const std::string& string() const { return *text_; }
    bool operator==(const DtSymbolString& other) const { return text_ == other.text_; }
    bool operator!=(const DtSymbolString& other) const { return text_ != other.text_; }

private:
    const std::string* text_;
};
