// Small helpers over libxml2's nodes that the MetaFlight cursor and publisher share:
// element tests, and the document-order walk every search of a document takes (a node,
// its subtree, then its following siblings with theirs).
//
// Internal to the plug-in; not installed.
#pragma once

#include <libxml/tree.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace kelZor {
namespace metaflight {

inline bool isElement(const xmlNode* node) {
    return node && node->type == XML_ELEMENT_NODE;
}

inline bool hasName(const xmlNode* node, const std::string& name) {
    return node->name && std::strcmp(reinterpret_cast<const char*>(node->name), name.c_str()) == 0;
}

// The next node in document order within the walk that started at a node whose parent
// is `stop`: children first (never those of entity references, which belong to the
// entity's declaration), then siblings, then the siblings of ancestors below `stop`.
inline xmlNode* nextInWalk(xmlNode* node, const xmlNode* stop) {
    if (node->children && (node->type == XML_ELEMENT_NODE || node->type == XML_DOCUMENT_NODE)) {
        return node->children;
    }
    while (node) {
        if (node->next)
            return node->next;
        node = node->parent;
        if (node == stop)
            return nullptr;
    }
    return nullptr;
}

// The `index`-th node of that walk from `start` that matches, or null.
template <typename Predicate>
xmlNode* findInWalk(xmlNode* start, int index, Predicate matches) {
    if (!start || index < 0)
        return nullptr;
    const xmlNode* stop = start->parent;
    for (xmlNode* node = start; node; node = nextInWalk(node, stop)) {
        if (matches(node) && index-- == 0)
            return node;
    }
    return nullptr;
}

struct XmlFreeString {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

}  // namespace metaflight
}  // namespace kelZor
