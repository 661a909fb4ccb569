#include "tdbutil/DtSymbolString.h"

#include <mutex>
#include <unordered_set>

namespace {

// Symbols live as long as the process: nodes of any load may hold them.
const std::string* intern(const std::string& text) {
    // The same text comes again and again (a prop type, a model, a field name): the last
    // one found on this thread is tried before the table and its lock.
    thread_local const std::string* last = nullptr;
    if (last && *last == text)
        return last;
    static std::mutex lock;
    static auto* table = new std::unordered_set<std::string>();
    std::lock_guard<std::mutex> guard(lock);
    last = &*table->insert(text).first;
    return last;
}

const std::string* empty() {
    static const std::string* text = intern("");
    return text;
}

}  // namespace

DtSymbolString::DtSymbolString() : text_(empty()) {}
DtSymbolString::DtSymbolString(const std::string& text) : text_(intern(text)) {}
DtSymbolString::DtSymbolString(const char* text) : text_(intern(text ? text : "")) {}

DtSymbolString DtSymbolString::stored(const std::string* text) {
    DtSymbolString symbol;
    if (text)
        symbol.text_ = text;
    return symbol;
}
