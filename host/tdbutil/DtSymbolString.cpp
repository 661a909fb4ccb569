#include "tdbutil/DtSymbolString.h"

#include <mutex>
#include <unordered_set>

namespace {

// Symbols live as long as the process: nodes of any load may hold them.
const std::string* intern(const std::string& text) {
    static std::mutex lock;
    static auto* table = new std::unordered_set<std::string>();
    std::lock_guard<std::mutex> guard(lock);
    return &*table->insert(text).first;
}

}  // namespace

DtSymbolString::DtSymbolString() : text_(intern("")) {}
DtSymbolString::DtSymbolString(const std::string& text) : text_(intern(text)) {}
DtSymbolString::DtSymbolString(const char* text) : text_(intern(text ? text : "")) {}

DtSymbolString DtSymbolString::stored(const std::string* text) {
    DtSymbolString symbol;
    if (text)
        symbol.text_ = text;
    return symbol;
}
