#include "zorTerrain/DtMetaFlightParser.h"

#include <fcntl.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kelZor {

namespace {

const char* const openFailed = "MetaFlight Parsing Error : Unable to open file descriptor\n";
const char* const fileEmpty = "MetaFlight Parsing Error : File is empty.\n";
const char* const badDatabaseCount =
    "MetaFlight Parsing Error : Unsupported number of Database nodes\n";

// Deleted from the raw text in this order; of two where one contains the other, the
// longer stands first.
struct Prefix {
    const char* text;
    size_t length;
};
template <size_t N>
constexpr Prefix prefix(const char (&text)[N]) {
    return {text, N - 1};
}
constexpr Prefix namespacePrefixes[] = {
    prefix("MetaFlight:"),        prefix("Ellipsoid:"),
    prefix("CoordSysType::"),     prefix("GridStructure::"),
    prefix("Coverage::"),         prefix("SwitchDistanceTable::"),
    prefix("SwitchDistance::"),   prefix("NonProjectedCoordSys::"),
    prefix("ProjectedCoordSys::")};

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

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

// A document's text, left unzeroed since the file fills it. From the heap: pages of its
// own would be faulted in afresh on every load, where the heap's are reused (the parser
// asks for a large block right after anyway, so the heap is tidied either way).
class TextBuffer {
public:
    bool allocate(size_t bytes) {
        data_.reset(static_cast<char*>(std::malloc(bytes)));
        capacity_ = data_ ? bytes : 0;
        return data_ != nullptr;
    }
    char* data() { return data_.get(); }
    size_t size() const { return size_; }
    void resize(size_t bytes) { size_ = bytes < capacity_ ? bytes : capacity_; }

private:
    struct Free {
        void operator()(char* text) const { std::free(text); }
    };
    std::unique_ptr<char, Free> data_;
    size_t capacity_ = 0;
    size_t size_ = 0;
};

// An open file descriptor, closed with its owner.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

// The first occurrence of `literal` in [from, end), found by its last byte: the
// prefixes all end in ':', which is rare in XML text, so memchr hops between candidates.
// Ordering candidates by their end orders them by their start, so this is the leftmost.
const char* findLiteral(const char* from, const char* end, const char* literal, size_t length) {
    const char last = literal[length - 1];
    for (const char* at = from + length - 1; at < end;) {
        const char* hit =
            static_cast<const char*>(std::memchr(at, last, static_cast<size_t>(end - at)));
        if (!hit)
            return nullptr;
        const char* start = hit - (length - 1);
        if (std::memcmp(start, literal, length - 1) == 0)
            return start;
        at = hit + 1;
    }
    return nullptr;
}

// Deletes every occurrence of `literal` in place, never searching the text behind a
// deletion again; answers the new size. One linear pass.
size_t deleteAll(char* text, size_t size, const char* literal, size_t length) {
    const char* read = text;
    const char* end = text + size;
    char* write = text;
    while (true) {
        const char* found = findLiteral(read, end, literal, length);
        const char* stop = found ? found : end;
        if (write != read)
            std::memmove(write, read, static_cast<size_t>(stop - read));
        write += stop - read;
        if (!found)
            break;
        read = found + length;
    }
    return static_cast<size_t>(write - text);
}

// Deleting each prefix in turn over the whole text, as the format defines it.
size_t deleteEachInTurn(char* text, size_t size) {
    for (const Prefix& prefix : namespacePrefixes)
        size = deleteAll(text, size, prefix.text, prefix.length);
    return size;
}

bool isPrefixByte(char c) {
    return c == ':' || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// The prefixes one left-to-right pass meets: at each ':' the first prefix, in deletion
// order, whose text ends there and starts after the last one met. The text may arrive
// in pieces; each scan goes on where the last stopped.
class PrefixScanner {
public:
    explicit PrefixScanner(const char* text) : afterLast_(text), at_(text) {}

    // Calls `onMatch(start, length)` for each prefix whose ':' lies before `end`; stops
    // and answers false as soon as onMatch does.
    template <typename OnMatch>
    bool scan(const char* end, OnMatch onMatch) {
        while (at_ < end) {
            const char* colon =
                static_cast<const char*>(std::memchr(at_, ':', static_cast<size_t>(end - at_)));
            if (!colon) {
                at_ = end;
                return true;
            }
            at_ = colon + 1;
            if (const Prefix* prefix = prefixEndingAt(colon)) {
                if (!onMatch(at_ - prefix->length, prefix->length))
                    return false;
                afterLast_ = at_;
            }
        }
        return true;
    }

private:
    const Prefix* prefixEndingAt(const char* colon) const {
        const size_t room = static_cast<size_t>(colon - afterLast_) + 1;
        for (const Prefix& prefix : namespacePrefixes) {
            // The byte before the ':' turns most candidates away without a call.
            if (room < prefix.length || colon[-1] != prefix.text[prefix.length - 2])
                continue;
            if (std::memcmp(colon + 1 - prefix.length, prefix.text, prefix.length - 2) == 0)
                return &prefix;
        }
        return nullptr;
    }

    const char* afterLast_;
    const char* at_;
};

// Whether a prefix the pass meets may be deleted together with the others: when it
// stands behind a byte that no prefix holds ('<', '/', '"', a space: every real
// document), no deletion can join two pieces of text into a new prefix, so deleting all
// at once leaves what deleting each in turn does.
bool deletableInOnePass(const char* text, const char* start) {
    return start == text || !isPrefixByte(start[-1]);
}

// Deletes every prefix in one pass, in place, taking the text as it arrives.
class OnePassDeletion {
public:
    explicit OnePassDeletion(char* text) : text_(text), write_(text), kept_(text), scanner_(text) {}

    // Takes the text up to `end`, which only grows from call to call. False, the text
    // spoilt, at the first prefix one pass cannot delete exactly; the byte before a
    // prefix is still as it came when it is looked at (the pass writes only behind what
    // it has read).
    bool takeUpTo(const char* end) {
        return scanner_.scan(end, [this](const char* start, size_t length) {
            if (!deletableInOnePass(text_, start))
                return false;
            std::memmove(write_, kept_, static_cast<size_t>(start - kept_));
            write_ += start - kept_;
            kept_ = start + length;
            return true;
        });
    }

    // Closes the text at `end`; answers its new size.
    size_t finish(const char* end) {
        std::memmove(write_, kept_, static_cast<size_t>(end - kept_));
        return static_cast<size_t>(write_ - text_) + static_cast<size_t>(end - kept_);
    }

private:
    char* text_;
    char* write_;
    const char* kept_;  // the first byte taken and not yet written
    PrefixScanner scanner_;
};

// Small enough that a piece is still in the cache when it is looked at.
constexpr size_t pieceBytes = 64 * 1024;

// Reads [0, size) of the file into `buffer`, calling `onPiece(begin, end)` with each
// piece as it comes in; stops early when onPiece answers false. Answers the bytes read:
// a file that shrank while read ends where it ended.
template <typename OnPiece>
size_t readPieces(int file, char* buffer, size_t size, OnPiece onPiece) {
    size_t done = 0;
    while (done < size) {
        const ssize_t got =
            pread(file, buffer + done, std::min(pieceBytes, size - done), static_cast<off_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        const size_t begin = done;
        done += static_cast<size_t>(got);
        if (!onPiece(buffer + begin, buffer + done))
            break;
    }
    return done;
}

// The file's text up to its first zero byte with the prefixes deleted, or false with the
// loader's message. Each piece is cleaned as soon as it is read; a text that one pass
// cannot clean exactly is read again and cleaned prefix by prefix.
bool readDocumentText(const std::string& path, TextBuffer& contents, std::string& errorMessage) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat info;
    if (file.get() < 0 || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        // A directory or a device may open, but holds no document.
        errorMessage = openFailed;
        return false;
    }
    if (info.st_size == 0) {
        errorMessage = fileEmpty;
        return false;
    }
    const size_t size = static_cast<size_t>(info.st_size);
    if (!contents.allocate(size)) {
        errorMessage = openFailed;
        return false;
    }
    char* text = contents.data();
    OnePassDeletion deletion(text);
    const char* zero = nullptr;
    bool exact = true;
    const size_t read = readPieces(file.get(), text, size, [&](char* begin, char* end) {
        zero = static_cast<const char*>(std::memchr(begin, '\0', static_cast<size_t>(end - begin)));
        exact = deletion.takeUpTo(zero ? zero : end);
        return exact && !zero;
    });
    if (exact) {
        contents.resize(deletion.finish(zero ? zero : text + read));
        return true;
    }
    const size_t again = readPieces(file.get(), text, size, [](char*, char*) { return true; });
    zero = static_cast<const char*>(std::memchr(text, '\0', again));
    contents.resize(deleteEachInTurn(text, zero ? static_cast<size_t>(zero - text) : again));
    return true;
}

}  // namespace

size_t DtMetaFlightParser::deleteNamespacePrefixes(char* text, size_t size) {
    char* end = text + size;
    const bool onePassIsExact = PrefixScanner(text).scan(
        end, [text](const char* start, size_t) { return deletableInOnePass(text, start); });
    if (!onePassIsExact)
        return deleteEachInTurn(text, size);
    OnePassDeletion deletion(text);
    deletion.takeUpTo(end);
    return deletion.finish(end);
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

bool isElement(const xmlNode* node) {
    return node && node->type == XML_ELEMENT_NODE;
}

bool hasName(const xmlNode* node, const std::string& name) {
    return node->name && std::strcmp(reinterpret_cast<const char*>(node->name), name.c_str()) == 0;
}

// The next node in document order within the walk that started at a node whose parent
// is `stop`: children first (never those of entity references, which belong to the
// entity's declaration), then siblings, then the siblings of ancestors below `stop`.
xmlNode* nextInWalk(xmlNode* node, const xmlNode* stop) {
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
    TextBuffer contents;
    if (!readDocumentText(path, contents, errorMessage))
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

// ---------------------------------------------------------------------- publishing

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

struct XmlFreeString {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

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
