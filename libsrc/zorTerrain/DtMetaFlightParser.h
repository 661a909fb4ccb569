// DtMetaFlightParser: loads a MetaFlight terrain description and offers a cursor over
// its XML, the only place the MetaFlight library touches libxml2.
//
//   DtMetaFlightParser parser;
//   std::string error;
//   if (!parser.openFile("/data/terrain.mft", "", error)) report(error);
//   // the cursor stands on the "Database" element
//   if (parser.readFirstChildElement()) { ... parser.readParentElement(); }
//
// Loading deletes the format's namespace prefixes ("MetaFlight:", "Ellipsoid:", ...)
// from the raw text, cuts the text at its first zero byte, and finds "Database" under
// "MetaFlightRoot", "AcfRoot" or the root. A second file's top-level elements that the
// first lacks are merged in.
//
// The parser owns its document; the const char* results of the cursor belong to it and
// stay valid until the next openFile or the parser's end. Not copyable.
//
// Threads: a parser is used by one thread at a time; separate parsers may load on
// separate threads (libxml2 is initialised by the host before any). An attribute value
// libxml2 has to assemble (from entity references) is kept in a ring of eight per
// thread: such a result lives until eight more of them were asked on the same thread.
// publish may be called from any thread.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>

#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

struct DtXmlDocDeleter {
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
using DtXmlDocPtr = std::unique_ptr<xmlDoc, DtXmlDocDeleter>;

class ZOR_TERRAIN_EXPORT DtMetaFlightParser {
public:
    DtMetaFlightParser();
    ~DtMetaFlightParser();
    DtMetaFlightParser(const DtMetaFlightParser&) = delete;
    DtMetaFlightParser& operator=(const DtMetaFlightParser&) = delete;

    // Loads `fileName`, and merges `virtualTextureFileName` into it when that is not
    // empty. False with a message ("MetaFlight Parsing Error : ..." or libxml2's) when a
    // file cannot be read, does not parse, or has not exactly one "Database".
    bool openFile(const std::string& fileName, const std::string& virtualTextureFileName,
                  std::string& errorMessage);

    // What a publish changed.
    struct PublishSummary {
        int elementsMerged = 0;  // top-level elements taken from the merge file
        int virtualTexturesRemoved = 0;
        int switchDistancesSet = 0;     // largest distances overwritten
        bool fileFormatSet = false;     // the first geometry dataset's FileFormat
        bool patternRewritten = false;  // its ".flt" pattern now ".medf"
        // Whether libxml2 wrote the output without a fault it saw; when not, why (publish
        // still answers true once the write was attempted).
        bool written = false;
        std::string writeProblem;
    };

    // Writes `fileName` to `outputFileName`, after merging `mergeFileName` (by tag name)
    // when it is not empty, removing every VirtualTextureDataset, setting the largest
    // switch distance of each substitutive dataset to `switchDistance`, and turning the
    // first geometry dataset to the "medf" form, as the flags ask. False with a message,
    // writing nothing, when a file does not load or a switch distance table is not
    // found. The output is saved with xmlSaveFile to the name given: a caller that needs
    // it whole or not at all hands a temporary name and puts the file in place itself.
    static bool publish(const std::string& fileName, const std::string& mergeFileName,
                        const std::string& outputFileName, bool useMedfGeometry,
                        bool removeVirtualTexture, std::string& errorMessage,
                        bool setSwitchDistance, float switchDistance);
    static bool publish(const std::string& fileName, const std::string& mergeFileName,
                        const std::string& outputFileName, bool useMedfGeometry,
                        bool removeVirtualTexture, std::string& errorMessage,
                        bool setSwitchDistance, float switchDistance, PublishSummary& summary);

    const std::string& fileName() const { return fileName_; }
    // The second file of openFile, or the main file when there was none.
    const std::string& virtualTextureFileName() const { return virtualTextureFileName_; }

    // The current element's tag, "name" and "refTo" attributes and text; null when
    // there is no current element or no such thing.
    const char* currentElementType() const;
    const char* currentElementName() const;
    const char* currentElementReference() const;
    const char* currentElementText() const;
    // The "name" attribute, or "unique_<type>_genid_<n>" from a counter that starts at 0
    // with each openFile.
    std::string currentElementNameOrGenerateUnique();

    // The current element's text, converted as atoi/atof would; false and the value
    // untouched when the element has no text.
    bool getCurrentElementValue(std::string& value) const;
    bool getCurrentElementValue(int& value) const;
    bool getCurrentElementValue(unsigned int& value) const;
    bool getCurrentElementValue(double& value) const;

    unsigned int numberOfChildElements() const;
    // Moves between element nodes, passing over text and comments; on false the cursor
    // stays where it was.
    bool readFirstChildElement();
    bool readNextElement();
    bool readPreviousElement();
    bool readParentElement();

protected:
    // Reads, cleans and parses a file; the caller owns the result. Null on failure.
    static xmlDoc* createDocument(const std::string& fileName, std::string& errorMessage);
    static xmlNode* findDatabaseNode(xmlDoc* document, std::string& errorMessage);
    // Document-order search over `node`, its subtree, and its following siblings with
    // theirs, for the `index`-th node called `name`.
    static xmlNode* findChildWithName(xmlNode* node, const std::string& name, int index);
    static xmlNode* findChildWithAttribute(xmlNode* node, const std::string& elementName,
                                           const std::string& attributeName,
                                           const std::string& attributeValue);
    static int countChildrenWithName(xmlNode* node, const std::string& name);
    // The attribute's value, or null. Readable until the document changes; an assembled
    // value (see the top of this file) until eight more were asked on this thread.
    static const char* attribute(xmlNode* node, const std::string& name);
    static const char* text(xmlNode* node);
    static bool setText(xmlNode* node, const std::string& value);
    // Replaces every occurrence, never searching inserted text again; linear in the
    // text's length.
    static void replaceAll(std::string& text, const std::string& from, const std::string& to);
    // Deletes the format's namespace prefixes from `text` in place, as deleting each in
    // turn, in its fixed order, would; answers the new size.
    static size_t deleteNamespacePrefixes(char* text, size_t size);

private:
    // Makes `element` current; false, the cursor unmoved, for null.
    bool moveTo(xmlNode* element);
    // Reads a file into `document` and answers its "Database"; null with the message.
    static xmlNode* loadDatabase(const std::string& fileName, DtXmlDocPtr& document,
                                 std::string& errorMessage);
    static bool mergeDocument(xmlNode* mainDatabase, const std::string& fileName,
                              std::string& errorMessage);

    std::string fileName_;
    std::string virtualTextureFileName_;
    DtXmlDocPtr document_;
    xmlNode* currentElement_ = nullptr;
    unsigned int nextUniqueId_ = 0;
};

}  // namespace kelZor
