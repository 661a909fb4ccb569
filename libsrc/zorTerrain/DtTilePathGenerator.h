// DtTilePathGenerator: every tile path of one level of a geometry dataset, from the
// dataset's FileNamePattern compiled once. Each path is byte for byte what
// DtMetaFlightDescription::generateGeometryGridTileFilename gives for the same tile.
//
// The pattern language lives here, in the static members: how a pattern splits into
// references, how a reference's printf format is checked and a value formatted, how a
// name is put behind the document's directory. The description expands a pattern with
// any variables, for one tile at a time; this class exists beside it because a level of
// a million tiles is named tens of times faster when the constants are formatted once
// and only the row and column are written per tile.
//
//   DtTilePathGenerator tiles(description, "Terrain", 3);
//   std::string path;
//   for (unsigned row = 0; row < tiles.rows(); ++row)
//       for (unsigned col = 0; col < tiles.columns(); ++col) {
//           tiles.path(row, col, path);
//           use(path);
//       }
//
// Construction throws what the description's lookups throw for an unknown dataset or a
// level outside the level vectors. The generator holds copies: the description may go.
// Once made, a generator only reads: several threads may ask it for paths at once.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtTilePathGenerator {
public:
    // The checked format of one pattern reference: the literal text before and after
    // its one conversion (with "%%" already made "%"), and the conversion.
    struct Format {
        std::string before;
        std::string after;
        bool hasConversion = false;
        char conversion = 0;
        std::string flags;
        int width = 0;
        int precision = -1;
        bool shortLength = false;  // 'h' or "hh"
        std::string printfFormat;  // the whole format, as printf would be given it
        bool native = false;       // formatted here rather than by snprintf
        bool leftAlign = false;    // '-': pad with spaces behind
        bool zeroPad = false;      // '0' without '-': pad with zeros behind the sign
    };
    // What a tile path needs of the document's file, worked out once per file.
    struct PathContext {
        std::string sourceFile;
        std::string prefix;    // the file's directory and '/'
        std::string baseName;  // the directory's own name, with its extension
    };
    // One "$(NAME)" of a pattern: the text in front of it since the reference before (the
    // printf formatting of its value) and the variable's name.
    struct Reference {
        std::string formatting;
        std::string variable;
    };
    // Longest expansion of one reference, exclusive.
    static constexpr size_t maxExpansion = 2048;

    // A pattern's references in order and the text behind the last; false for a "$("
    // without its ")", which leaves nothing to expand.
    static bool splitPattern(const std::string& pattern, std::vector<Reference>& references,
                             std::string& tail);
    // Checks the text in front of a reference as a printf format for one value of that
    // kind; false for anything unsafe or unfitting.
    static bool parseFormat(const std::string& formatting, bool textValue, Format& format);
    // Appends the value formatted; false, appending nothing, when the expansion would
    // reach maxExpansion characters.
    static bool append(std::string& out, const Format& format,
                       const DtMetaFlightDescription::StringOrInt& value);
    // A tile's path from the name its pattern expanded to: the directory of `sourceFile`,
    // then `parsedFile`, without repeating the directory's own name, backslashes made '/'.
    static std::string composePath(const std::string& sourceFile, std::string parsedFile);
    static PathContext pathContext(const std::string& sourceFile);
    static std::string composePath(const PathContext& context, std::string parsedFile);

    DtTilePathGenerator(const DtMetaFlightDescription& description, const std::string& name,
                        int level);
    // The same, for a caller that walks every level and has each level's totals already
    // (a level's own costs its depth: all levels one by one cost the square of their count).
    DtTilePathGenerator(const DtMetaFlightDescription& description, const std::string& name,
                        int level, unsigned int rows, unsigned int columns);

    unsigned int rows() const { return rows_; }
    unsigned int columns() const { return columns_; }
    // The path of one tile into `out`. Rows and columns are not checked, as the
    // description does not check them either.
    void path(unsigned int row, unsigned int col, std::string& out) const;

private:
    enum class Variable { Row, Col };
    struct Segment {
        std::string literal;  // constant text in front of the value, the format's own too
        Format format;
        Variable variable;
        bool merged = false;  // the format's texts joined the constants; no check needed
    };

    void compile(const std::string& pattern,
                 const std::map<std::string, DtMetaFlightDescription::StringOrInt>& constants);
    bool expand(unsigned int row, unsigned int col, std::string& out) const;

    PathContext context_;
    unsigned int rows_ = 0;
    unsigned int columns_ = 0;
    bool expandable_ = false;
    static constexpr size_t bufferSize = 512;
    bool fast_ = false;      // the path's head does not depend on the tile
    bool buffered_ = false;  // fast, every value an integer formatted here, short paths
    std::string head_;       // the fixed start: directory, '/', and the constant text
    std::vector<Segment> segments_;
    std::string tail_;
};

}  // namespace kelZor
