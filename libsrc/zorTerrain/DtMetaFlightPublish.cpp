// Publishing a MetaFlight document: merged, trimmed and turned on its XML tree, so that
// what the element classes do not read survives, and written so that a failed write
// leaves the target as it was.
#include "zorTerrain/DtMetaFlightParser.h"

#include <libxml/tree.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zorTerrain/DtMetaFlightXml.h"

namespace kelZor {

using metaflight::FilePtr;
using metaflight::findInWalk;
using metaflight::hasName;
using metaflight::isElement;
using metaflight::XmlFreeString;

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

// The file a chain of symbolic links ends at (the path itself when it is no link), so
// that publishing onto a link replaces what the link points to and keeps the link.
std::string linkTarget(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {
        struct stat info;
        if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode))
            return path;
        std::string target(static_cast<size_t>(PATH_MAX), '\0');
        const ssize_t length = ::readlink(path.c_str(), &target[0], target.size());
        if (length <= 0 || static_cast<size_t>(length) >= target.size())
            return path;
        target.resize(static_cast<size_t>(length));
        const size_t slash = path.rfind('/');
        path = target[0] == '/' || slash == std::string::npos ? target
                                                              : path.substr(0, slash + 1) + target;
    }
    return path;
}

bool writeAll(FILE* file, const xmlChar* text, int size) {
    return std::fwrite(text, 1, static_cast<size_t>(size), file) == static_cast<size_t>(size) &&
           std::fflush(file) == 0;
}

// Writes the document so that a failed or interrupted write leaves the output as it
// was: beside the file (the end of its links) under a temporary name, renamed over it
// once complete and on disk. An output that is no regular file (a pipe, a terminal,
// /dev/stdout) cannot be replaced and is written directly; a directory is refused. The
// reason of a failure goes to `problem`.
bool writeAtomically(xmlDoc* document, const std::string& output, std::string& problem) {
    xmlChar* raw = nullptr;
    int size = 0;
    xmlDocDumpMemory(document, &raw, &size);
    std::unique_ptr<xmlChar, XmlFreeString> text(raw);
    if (!text || size < 0) {
        problem = "the document cannot be serialised";
        return false;
    }
    struct stat existing;
    if (::stat(output.c_str(), &existing) == 0 && S_ISDIR(existing.st_mode)) {
        problem = "is a directory";
        return false;
    }
    if (::stat(output.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode)) {
        FilePtr file(std::fopen(output.c_str(), "wb"));
        if (!file || !writeAll(file.get(), text.get(), size)) {
            problem = std::strerror(errno);
            return false;
        }
        return true;
    }
    const std::string target = linkTarget(output);
    static unsigned counter = 0;
    const std::string temporary =
        target + ".tmp-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
    bool written = false;
    {
        FilePtr file(std::fopen(temporary.c_str(), "wb"));
        if (file) {
            written = writeAll(file.get(), text.get(), size) && fsync(fileno(file.get())) == 0;
            if (written && ::stat(target.c_str(), &existing) == 0) {
                fchmod(fileno(file.get()), existing.st_mode & 07777);
            }
        }
    }
    if (written && std::rename(temporary.c_str(), target.c_str()) == 0)
        return true;
    problem = std::strerror(errno);
    std::remove(temporary.c_str());
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

    // True once the write was attempted, as engine tools expect of publish; whether it
    // was written is in the summary. A failed write leaves the target untouched.
    summary.written = writeAtomically(document.get(), outputFileName, summary.writeProblem);
    return true;
}

}  // namespace kelZor
