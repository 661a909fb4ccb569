// Lookups that throw DtTemplatedException<-1> instead of answering an end iterator:
//
//   const auto& dataset = kelZor::findOrThrow(database.geometryGridDataset, key);
//   const auto& level = kelZor::findByIndexOrThrow(dataset->geometryGridLevel, 2);
//
// A missing key gives "DtInvalidInput: Unable to find key"; an index outside 0 to
// size - 1 (negative ones included) gives "DtInvalidInput: Index out of range.". The
// map is never changed.
#pragma once

#include <iterator>
#include <map>
#include <vector>

#include <ostream>
#include <string>

#include "hxutil/DtException.h"
#include "hxutil/DtFilename.h"

// Throws DtTemplatedException<code>, built where it is thrown as the engine's handlers
// expect to read it: message prefix + detail, full signature, source file name without
// its directory, line, no previous exception.
#define ZOR_THROW(code, prefix, detail)                                \
    throw DtTemplatedException<code>(                                  \
        (std::string(prefix) + (detail)).c_str(), __PRETTY_FUNCTION__, \
        DtFilename::stripPath(DtFilename(__FILE__)).c_str(), __LINE__, nullptr)
#define ZOR_THROW_INVALID_INPUT(detail) ZOR_THROW(-1, "DtInvalidInput: ", detail)
#define ZOR_THROW_CORRUPTED_STATE(detail) ZOR_THROW(-3, "DtCorruptedState: ", detail)

// Writes a warning to the engine's log in its two-line shape, naming the function it is
// written from: "<Warning:" signature ">", then the message.
#define ZOR_WARN(log, message) \
    kelZor::writeWarning((log).out(kelZor::DtDebugLog::Warning), __PRETTY_FUNCTION__, message)

namespace kelZor {

inline void writeWarning(std::ostream& out, const char* signature, const std::string& message) {
    out << "<Warning:" << signature << ">" << std::endl;
    out << message << std::endl;
}

template <typename K, typename V>
const V& findOrThrow(const std::map<K, V>& map, K key) {
    const auto found = map.find(key);
    if (found == map.end())
        ZOR_THROW_INVALID_INPUT("Unable to find key");
    return found->second;
}

// The entry at `index` in key order.
template <typename K, typename V>
const V& findByIndexOrThrow(const std::map<K, V>& map, int index) {
    if (index < 0 || static_cast<size_t>(index) >= map.size()) {
        ZOR_THROW_INVALID_INPUT("Index out of range.");
    }
    return std::next(map.begin(), index)->second;
}

template <typename V>
const V& findByIndexOrThrow(const std::vector<V>& vector, int index) {
    if (index < 0 || static_cast<size_t>(index) >= vector.size()) {
        ZOR_THROW_INVALID_INPUT("Index out of range.");
    }
    return vector[static_cast<size_t>(index)];
}

}  // namespace kelZor
