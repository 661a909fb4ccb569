// Publishing a MetaFlight document: merged, trimmed and turned on its XML tree, so that
// what the element classes do not read survives, and saved to the name given.
#include "zorTerrain/DtMetaFlightParser.h"

#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <cstdio>
#include <cstdlib>

#include "zorTerrain/DtMetaFlightXml.h"

namespace kelZor {

using metaflight::findInWalk;
using metaflight::hasName;
using metaflight::isElement;

namespace {

// The `index`-th node inside `start` (itself and its subtree, in document order) that
// matches. Unlike findChildWithName the search ends with the element it starts from,
// so a dataset or a table never borrows a child of the one behind it. Searches from the
// Database walk on into its following siblings, as every search of a document does.
template <typename Predicate>
xmlNode* findWithin(xmlNode* start, int index, Predicate matches) {
    if (!start || index < 0)
        return nullptr;
    for (xmlNode* n = start; n;) {
        if (matches(n) && index-- == 0)
            return n;
        if (n->children && (n->type == XML_ELEMENT_NODE || n->type == XML_DOCUMENT_NODE)) {
            n = n->children;
            continue;
        }
        while (n != start && !n->next)
            n = n->parent;
        n = n == start ? nullptr : n->next;
    }
    return nullptr;
}

xmlNode* findWithin(xmlNode* start, const char* name, int index) {
    const std::string wanted(name);
    return findWithin(start, index, [&](const xmlNode* n) { return hasName(n, wanted); });
}

// The first node named `name` from the Database on: its subtree, then its following
// siblings with theirs, as findChildWithName walks.
xmlNode* findFromDatabase(xmlNode* database, const std::string& name) {
    return findInWalk(database, 0, [&](const xmlNode* n) { return hasName(n, name); });
}

// Writes the document to the name given, as it stands: where and how it is made safe
// (a temporary, a rename, the checks of a full disk) is the caller's to decide, so that
// publish holds no state between calls. What libxml2 says of a failed write is kept.
bool saveDocument(xmlDoc* document, const std::string& output, std::string& problem) {
    xmlResetLastError();
    if (xmlSaveFile(output.c_str(), document) >= 0)
        return true;
    const xmlError* error = xmlGetLastError();
    problem = error && error->message ? error->message : "the document cannot be written";
    while (!problem.empty() && (problem.back() == '\n' || problem.back() == ' '))
        problem.pop_back();
    return false;
}

void mergeByTag(xmlNode* mainDatabase, xmlNode* secondDatabase,
                DtMetaFlightParser::PublishSummary& summary) {
    for (xmlNode* child = secondDatabase->children; child; child = child->next) {
        if (!isElement(child) ||
            findFromDatabase(mainDatabase, reinterpret_cast<const char*>(child->name))) {
            continue;
        }
        xmlNode* copy = xmlDocCopyNode(child, mainDatabase->doc, 1);
        if (copy && !xmlAddChild(mainDatabase, copy)) {
            xmlFreeNode(copy);
        } else if (copy) {
            ++summary.elementsMerged;
        }
    }
}

void removeVirtualTextures(xmlNode* database, DtMetaFlightParser::PublishSummary& summary) {
    while (xmlNode* dataset = findFromDatabase(database, "VirtualTextureDataset")) {
        xmlUnlinkNode(dataset);
        xmlFreeNode(dataset);
        ++summary.virtualTexturesRemoved;
    }
}

// An element's text; an element without text reads as empty.
std::string textOf(xmlNode* node) {
    for (const xmlNode* child = node ? node->children : nullptr; child; child = child->next) {
        if (xmlNodeIsText(child))
            return child->content ? reinterpret_cast<const char*>(child->content) : "";
    }
    return "";
}

// Sets the largest positive Value of the table to `distance`; false when there is none.
bool setLargestDistance(xmlNode* table, float distance,
                        bool (*setText)(xmlNode*, const std::string&)) {
    xmlNode* chosen = nullptr;
    float largest = 0.0f;
    for (int k = 0;; ++k) {
        xmlNode* value = findWithin(table, "Value", k);
        if (!value)
            break;
        const float number = static_cast<float>(std::atof(textOf(value).c_str()));
        if (number > largest) {
            largest = number;
            chosen = value;
        }
    }
    if (!chosen)
        return false;
    char text[64];
    std::snprintf(text, sizeof text, "%f", static_cast<double>(distance));
    // The Value's text node, which in a valid document is its first child.
    return setText(chosen, text);
}

}  // namespace

bool DtMetaFlightParser::publish(const std::string& fileName, const std::string& mergeFileName,
                                 const std::string& outputFileName, bool useMedfGeometry,
                                 bool removeVirtualTexture, std::string& errorMessage,
                                 bool setSwitchDistance, float switchDistance) {
    PublishSummary ignored;
    return publish(fileName, mergeFileName, outputFileName, useMedfGeometry, removeVirtualTexture,
                   errorMessage, setSwitchDistance, switchDistance, ignored);
}

bool DtMetaFlightParser::publish(const std::string& fileName, const std::string& mergeFileName,
                                 const std::string& outputFileName, bool useMedfGeometry,
                                 bool removeVirtualTexture, std::string& errorMessage,
                                 bool setSwitchDistance, float switchDistance,
                                 PublishSummary& summary) {
    summary = PublishSummary();
    DtXmlDocPtr document;
    xmlNode* database = loadDatabase(fileName, document, errorMessage);
    if (!database)
        return false;

    if (!mergeFileName.empty()) {
        DtXmlDocPtr second;
        xmlNode* secondDatabase = loadDatabase(mergeFileName, second, errorMessage);
        if (!secondDatabase)
            return false;
        mergeByTag(database, secondDatabase, summary);
    }
    if (removeVirtualTexture)
        removeVirtualTextures(database, summary);

    if (setSwitchDistance) {
        for (int n = 0;; ++n) {
            xmlNode* dataset = findChildWithName(database, "GeometryGridDataset", n);
            if (!dataset)
                break;
            xmlNode* hierarchy = findWithin(dataset, "HierarchyType", 0);
            if (!hierarchy) {
                errorMessage = "Invalid GeometryGridDataset: missing HierarchyType";
                return false;
            }
            if (textOf(hierarchy) != "SUBSTITUTIVE")
                continue;
            xmlNode* used = findWithin(dataset, "SwitchDistanceTableUsed", 0);
            if (!used) {
                errorMessage = "Invalid GeometryGridDataset: missing SwitchDistanceTableUsed";
                return false;
            }
            const char* refTo = attribute(used, "refTo");
            if (!refTo) {
                errorMessage = "Invalid SwitchDistanceTableUsed: missing refTo attribute";
                return false;
            }
            const std::string tableName(refTo);
            xmlNode* table =
                findChildWithAttribute(database, "SwitchDistanceTable", "name", tableName);
            if (!table) {
                errorMessage =
                    "Invalid refTo attribute: corresponding SwitchDistanceTable not found";
                return false;
            }
            if (setLargestDistance(table, switchDistance, &setText))
                ++summary.switchDistancesSet;
        }
    }

    if (useMedfGeometry) {
        if (xmlNode* dataset = findChildWithName(database, "GeometryGridDataset", 0)) {
            xmlNode* format = findWithin(dataset, "FileFormat", 0);
            if (!format)
                format = xmlNewChild(dataset, nullptr,
                                     reinterpret_cast<const xmlChar*>("FileFormat"), nullptr);
            if (format && textOf(format) != "medf")
                summary.fileFormatSet = setText(format, "medf");
            if (xmlNode* pattern = findWithin(dataset, "FileNamePattern", 0)) {
                std::string text = textOf(pattern);
                const size_t flt = text.find(".flt");
                if (flt != std::string::npos) {
                    text.replace(flt, 4, ".medf");
                    summary.patternRewritten = setText(pattern, text);
                }
            }
        }
    }

    // True once the write was attempted, as engine tools expect of publish; whether
    // libxml2 saw it fail is in the summary.
    summary.written = saveDocument(document.get(), outputFileName, summary.writeProblem);
    return true;
}

}  // namespace kelZor
