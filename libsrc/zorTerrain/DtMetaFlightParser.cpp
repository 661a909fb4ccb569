#include "zorTerrain/DtMetaFlightParser.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "zorTerrain/DtMetaFlightText.h"
#include "zorTerrain/DtMetaFlightXml.h"

// The cursor over a MetaFlight document; reading and cleaning its text is in
// DtMetaFlightText.cpp, publishing in DtMetaFlightPublish.cpp.

namespace kelZor {

using metaflight::findInWalk;
using metaflight::hasName;
using metaflight::isElement;

namespace {

const char* const badDatabaseCount =
    "MetaFlight Parsing Error : Unsupported number of Database nodes\n";

// Keeps libxml2 from printing its own errors for the duration of a parse; the last error
// is still recorded for xmlGetLastError.
class QuietXmlErrors {
public:
    QuietXmlErrors() : savedHandler_(xmlStructuredError), savedContext_(xmlStructuredErrorContext) {
        xmlSetStructuredErrorFunc(nullptr, &ignore);
    }
    ~QuietXmlErrors() { xmlSetStructuredErrorFunc(savedContext_, savedHandler_); }
    QuietXmlErrors(const QuietXmlErrors&) = delete;
    QuietXmlErrors& operator=(const QuietXmlErrors&) = delete;

private:
    static void ignore(void*, xmlErrorPtr) {}
    xmlStructuredErrorFunc savedHandler_;
    void* savedContext_;
};

}  // namespace

size_t DtMetaFlightParser::deleteNamespacePrefixes(char* text, size_t size) {
    return metaflight::deletePrefixes(text, size);
}

namespace {

// The attribute written on the element itself; xmlHasProp without its search of the DTD.
const xmlAttr* ownAttribute(const xmlNode* node, const char* name) {
    for (const xmlAttr* attr = node->properties; attr; attr = attr->next) {
        if (attr->name && std::strcmp(reinterpret_cast<const char*>(attr->name), name) == 0)
            return attr;
    }
    return nullptr;
}

bool hasDeclarations(const xmlDoc* document) {
    return document && (document->intSubset || document->extSubset);
}

xmlNode* firstElement(xmlNode* node) {
    while (node && !isElement(node))
        node = node->next;
    return node;
}

// libxml2's attribute value as a string; attribute values made of several nodes
// (entity references) are joined by libxml2 itself.
std::string attributeValue(const xmlAttr* attr) {
    const xmlNode* value = attr->children;
    if (value && !value->next && value->type == XML_TEXT_NODE && value->content) {
        return reinterpret_cast<const char*>(value->content);
    }
    struct XmlFree {
        void operator()(xmlChar* text) const { xmlFree(text); }
    };
    std::unique_ptr<xmlChar, XmlFree> joined(xmlNodeListGetString(attr->doc, attr->children, 1));
    return joined ? reinterpret_cast<const char*>(joined.get()) : "";
}

// The cursor's own attribute reads, without a string made for each name asked.
const char* attributeNamed(xmlNode* node, const char* name) {
    if (!isElement(node))
        return nullptr;
    const xmlAttr* attr = ownAttribute(node, name);
    if (!attr && hasDeclarations(node->doc))  // a default the DTD gives
        attr = xmlHasProp(node, reinterpret_cast<const xmlChar*>(name));
    if (!attr || attr->type != XML_ATTRIBUTE_NODE)
        return nullptr;
    const xmlNode* value = attr->children;
    if (value && !value->next && value->type == XML_TEXT_NODE && value->content) {
        return reinterpret_cast<const char*>(value->content);  // owned by the document
    }
    // A value that libxml2 has to assemble: kept in a small ring per thread, so a
    // caller can hold a few results at once without owning any.
    thread_local std::array<std::string, 8> assembled;
    thread_local size_t next = 0;
    std::string& slot = assembled[next++ % assembled.size()];
    slot = attributeValue(attr);
    return slot.c_str();
}

// atoi and atof without the undefined behaviour of atoi on overflow: the value wraps
// as the C library's own conversion does.
int textToInt(const char* text) {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

// Whether `text` is a whole number in plain digits ([-]digits, an exponent allowed): no
// decimal point a locale could read otherwise, no sign or blank strtod alone takes.
bool isPlainNumber(const char* text) {
    const char* at = text + (*text == '-' ? 1 : 0);
    const char* digits = at;
    while (*at >= '0' && *at <= '9')
        ++at;
    if (at == digits)
        return false;
    if (*at == 'e' || *at == 'E') {
        ++at;
        if (*at == '+' || *at == '-')
            ++at;
        const char* exponent = at;
        while (*at >= '0' && *at <= '9')
            ++at;
        if (at == exponent)
            return false;
    }
    return *at == '\0';
}

// atof's reading. Documents are mostly plain numbers, which from_chars rounds exactly
// as strtod does, in a fraction of its time; anything else, or a value out of range,
// goes to strtod itself.
double textToDouble(const char* text) {
    if (isPlainNumber(text)) {
        double value = 0.0;
        const auto [end, error] = std::from_chars(text, text + std::strlen(text), value);
        if (error == std::errc())
            return value;
    }
    return std::strtod(text, nullptr);
}

}  // namespace

DtMetaFlightParser::DtMetaFlightParser() = default;
DtMetaFlightParser::~DtMetaFlightParser() = default;

xmlNode* DtMetaFlightParser::loadDatabase(const std::string& fileName, DtXmlDocPtr& document,
                                          std::string& errorMessage) {
    document.reset(createDocument(fileName, errorMessage));
    return document ? findDatabaseNode(document.get(), errorMessage) : nullptr;
}

bool DtMetaFlightParser::openFile(const std::string& fileName,
                                  const std::string& virtualTextureFileName,
                                  std::string& errorMessage) {
    document_.reset();
    currentElement_ = nullptr;
    nextUniqueId_ = 0;
    fileName_ = fileName;
    virtualTextureFileName_ = fileName;

    DtXmlDocPtr document;
    xmlNode* database = loadDatabase(fileName, document, errorMessage);
    if (!database)
        return false;
    if (!virtualTextureFileName.empty()) {
        virtualTextureFileName_ = virtualTextureFileName;
        if (!mergeDocument(database, virtualTextureFileName, errorMessage))
            return false;
    }
    document_ = std::move(document);
    currentElement_ = database;
    nextUniqueId_ = 0;
    return true;
}

bool DtMetaFlightParser::mergeDocument(xmlNode* mainDatabase, const std::string& fileName,
                                       std::string& errorMessage) {
    DtXmlDocPtr second;
    xmlNode* secondDatabase = loadDatabase(fileName, second, errorMessage);
    if (!secondDatabase)
        return false;
    for (xmlNode* child = secondDatabase->children; child; child = child->next) {
        if (!isElement(child))
            continue;
        const std::string tag = reinterpret_cast<const char*>(child->name);
        const char* name = attribute(child, "name");
        const xmlNode* existing = name ? findChildWithAttribute(mainDatabase, tag, "name", name)
                                       : findChildWithName(mainDatabase, tag, 0);
        if (existing)
            continue;
        xmlNode* copy = xmlDocCopyNode(child, mainDatabase->doc, 1);
        if (copy && !xmlAddChild(mainDatabase, copy))
            xmlFreeNode(copy);
    }
    return true;
}

const char* DtMetaFlightParser::currentElementType() const {
    return currentElement_ ? reinterpret_cast<const char*>(currentElement_->name) : nullptr;
}

const char* DtMetaFlightParser::currentElementName() const {
    return currentElement_ ? attributeNamed(currentElement_, "name") : nullptr;
}

const char* DtMetaFlightParser::currentElementReference() const {
    return currentElement_ ? attributeNamed(currentElement_, "refTo") : nullptr;
}

const char* DtMetaFlightParser::currentElementText() const {
    return currentElement_ ? text(currentElement_) : nullptr;
}

std::string DtMetaFlightParser::currentElementNameOrGenerateUnique() {
    if (const char* name = currentElementName())
        return name;
    // Most elements of a document have no name: their generated one is written in
    // place, in a string made once at its final length.
    static constexpr char before[] = "unique_";
    static constexpr char after[] = "_genid_";
    const char* type = currentElementType();
    const size_t typeLength = type ? std::strlen(type) : 0;
    char number[16];
    const char* digitsEnd =
        std::to_chars(number, number + sizeof number, static_cast<int>(nextUniqueId_++)).ptr;
    const size_t digits = static_cast<size_t>(digitsEnd - number);
    std::string unique(sizeof before - 1 + typeLength + sizeof after - 1 + digits, '\0');
    char* out = &unique[0];
    out = std::copy(before, before + sizeof before - 1, out);
    out = std::copy(type, type + typeLength, out);
    out = std::copy(after, after + sizeof after - 1, out);
    std::copy(static_cast<const char*>(number), digitsEnd, out);
    return unique;
}

bool DtMetaFlightParser::getCurrentElementValue(std::string& value) const {
    const char* content = currentElementText();
    if (!content)
        return false;
    value = content;
    return true;
}

bool DtMetaFlightParser::getCurrentElementValue(int& value) const {
    const char* content = currentElementText();
    if (!content)
        return false;
    value = textToInt(content);
    return true;
}

bool DtMetaFlightParser::getCurrentElementValue(unsigned int& value) const {
    const char* content = currentElementText();
    if (!content)
        return false;
    value = static_cast<unsigned int>(textToInt(content));
    return true;
}

bool DtMetaFlightParser::getCurrentElementValue(double& value) const {
    const char* content = currentElementText();
    if (!content)
        return false;
    value = textToDouble(content);
    return true;
}

unsigned int DtMetaFlightParser::numberOfChildElements() const {
    unsigned int count = 0;
    if (!currentElement_)
        return 0;
    for (const xmlNode* child = currentElement_->children; child; child = child->next) {
        count += isElement(child) ? 1 : 0;
    }
    return count;
}

bool DtMetaFlightParser::moveTo(xmlNode* element) {
    if (!element)
        return false;
    currentElement_ = element;
    // A walk goes on to the element's attributes, children and next sibling; asking for
    // all three now overlaps their cache misses instead of taking them one by one.
    __builtin_prefetch(element->properties);
    __builtin_prefetch(element->children);
    __builtin_prefetch(element->next);
    return true;
}

bool DtMetaFlightParser::readFirstChildElement() {
    return currentElement_ && moveTo(firstElement(currentElement_->children));
}

bool DtMetaFlightParser::readNextElement() {
    return currentElement_ && moveTo(firstElement(currentElement_->next));
}

bool DtMetaFlightParser::readPreviousElement() {
    if (!currentElement_)
        return false;
    xmlNode* previous = currentElement_->prev;
    while (previous && !isElement(previous))
        previous = previous->prev;
    return moveTo(previous);
}

bool DtMetaFlightParser::readParentElement() {
    return currentElement_ && isElement(currentElement_->parent) && moveTo(currentElement_->parent);
}

xmlDoc* DtMetaFlightParser::createDocument(const std::string& fileName, std::string& errorMessage) {
    std::string path(fileName);
    for (char& c : path) {
        if (c == '\\')
            c = '/';
    }
    metaflight::TextBuffer contents;
    if (!metaflight::readDocumentText(path, contents, errorMessage))
        return nullptr;
    if (contents.size() > static_cast<size_t>(INT_MAX)) {
        errorMessage = "MetaFlight Parsing Error : File is too large.\n";
        return nullptr;
    }
    QuietXmlErrors quiet;
    xmlResetLastError();
    xmlDoc* document = xmlParseMemory(contents.data(), static_cast<int>(contents.size()));
    if (!document) {
        const xmlError* error = xmlGetLastError();
        errorMessage = error && error->message ? error->message
                                               : "MetaFlight Parsing Error : not an XML text\n";
    }
    return document;
}

xmlNode* DtMetaFlightParser::findDatabaseNode(xmlDoc* document, std::string& errorMessage) {
    xmlNode* root = document ? xmlDocGetRootElement(document) : nullptr;
    xmlNode* parent = findChildWithName(root, "MetaFlightRoot", 0);
    if (!parent)
        parent = findChildWithName(root, "AcfRoot", 0);
    if (!parent)
        parent = root;
    if (!parent || countChildrenWithName(parent, "Database") != 1) {
        errorMessage = badDatabaseCount;
        return nullptr;
    }
    return findChildWithName(parent, "Database", 0);
}

xmlNode* DtMetaFlightParser::findChildWithName(xmlNode* node, const std::string& name, int index) {
    return findInWalk(node, index, [&](const xmlNode* n) { return hasName(n, name); });
}

xmlNode* DtMetaFlightParser::findChildWithAttribute(xmlNode* node, const std::string& elementName,
                                                    const std::string& attributeName,
                                                    const std::string& attributeValue) {
    return findInWalk(node, 0, [&](xmlNode* n) {
        if (!isElement(n) || !hasName(n, elementName))
            return false;
        const char* value = attribute(n, attributeName);
        return value && attributeValue == value;
    });
}

int DtMetaFlightParser::countChildrenWithName(xmlNode* node, const std::string& name) {
    int count = 0;
    if (!node)
        return 0;
    for (const xmlNode* child = node->children; child; child = child->next) {
        count += hasName(child, name) ? 1 : 0;
    }
    return count;
}

const char* DtMetaFlightParser::attribute(xmlNode* node, const std::string& name) {
    return attributeNamed(node, name.c_str());
}

const char* DtMetaFlightParser::text(xmlNode* node) {
    if (!node)
        return nullptr;
    for (const xmlNode* child = node->children; child; child = child->next) {
        if (child->type == XML_TEXT_NODE) {
            return child->content ? reinterpret_cast<const char*>(child->content) : "";
        }
        // An element with no text is about to have its children walked, each read for
        // its name and its own children: asking for those now overlaps their misses.
        __builtin_prefetch(child->properties);
        __builtin_prefetch(child->children);
    }
    return nullptr;
}

bool DtMetaFlightParser::setText(xmlNode* node, const std::string& value) {
    if (!node)
        return false;
    for (xmlNode* child = node->children; child; child = child->next) {
        if (xmlNodeIsText(child)) {
            xmlNodeSetContent(child, reinterpret_cast<const xmlChar*>(value.c_str()));
            return true;
        }
    }
    xmlNode* created = xmlNewText(reinterpret_cast<const xmlChar*>(value.c_str()));
    if (!created)
        return false;
    if (!xmlAddChild(node, created)) {
        xmlFreeNode(created);
        return false;
    }
    return true;
}

void DtMetaFlightParser::replaceAll(std::string& text, const std::string& from,
                                    const std::string& to) {
    if (from.empty())
        return;
    size_t found = text.find(from);
    if (found == std::string::npos)
        return;
    if (to.size() <= from.size()) {
        // Shrinking or equal: compact in place. The write position never passes the
        // read position, so the rest of the text is searched as it was.
        size_t write = found;
        size_t read = found;
        while (found != std::string::npos) {
            to.copy(&text[write], to.size());
            write += to.size();
            read = found + from.size();
            found = text.find(from, read);
            const size_t keep = (found == std::string::npos ? text.size() : found) - read;
            std::memmove(&text[write], text.data() + read, keep);
            write += keep;
            read += keep;
        }
        text.resize(write);
        return;
    }
    // Growing: built anew, so each hit costs its own length and not a move of the whole
    // rest of the text.
    std::string result;
    result.reserve(text.size() + text.size() / 8);
    size_t copied = 0;
    while (found != std::string::npos) {
        result.append(text, copied, found - copied);
        result += to;
        copied = found + from.size();
        found = text.find(from, copied);
    }
    result.append(text, copied, std::string::npos);
    text.swap(result);
}

}  // namespace kelZor
