#include "terrainDbFactory/DtTerrainDbFactory.h"

#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <fstream>
#include <sstream>

bool DtTdbMetafile::init(const DtFilename& file) {
    record_.reset();
    std::ifstream in(file.stdString(), std::ios::binary);
    if (!in)
        return false;
    std::string text(maxSize + 1, '\0');
    in.read(&text[0], static_cast<std::streamsize>(text.size()));
    if (in.bad() || static_cast<size_t>(in.gcount()) > maxSize)
        return false;
    text.resize(static_cast<size_t>(in.gcount()));
    return initFromText(text);
}

bool DtTdbMetafile::initFromText(const std::string& text) {
    record_.reset();
    // A NUL byte is no text; the INI reader would stop a line early on it.
    if (text.size() > maxSize || text.find('\0') != std::string::npos)
        return false;
    // Editors on some systems begin a UTF-8 text with a byte-order mark; the INI reader
    // would take it for part of the first name.
    const char bom[] = "\xEF\xBB\xBF";
    const size_t skip = text.compare(0, 3, bom) == 0 ? 3 : 0;
    boost::property_tree::ptree tree;
    try {
        std::istringstream in(text.substr(skip));
        boost::property_tree::read_ini(in, tree);
    } catch (const boost::property_tree::ptree_error&) {
        return false;
    }
    const auto terrain = tree.get_optional<std::string>(
        boost::property_tree::ptree::path_type("3DView/terrain", '/'));
    if (terrain && !terrain->empty())
        record_ = std::make_unique<Dt3DViewMetafileRecord>(DtFilename(*terrain));
    return true;
}
