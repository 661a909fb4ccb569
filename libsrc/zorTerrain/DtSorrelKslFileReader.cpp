#include "zorTerrain/DtSorrelKslFileReader.h"

#include <cstdio>
#include <cstring>

#include "hxutil/DtNotify.h"
#include "ksl/DtKslEnvironment.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace kelZor {

namespace {

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

// The value of `name`, else of `secondName` when given; null when neither is bound.
DtlObjPtr valueOf(DtKslEnvironment* environment, const char* name,
                  const char* secondName = nullptr) {
    DtlObjPtr value = environment->symbolValue(name);
    if (value.isNull() && secondName)
        value = environment->symbolValue(secondName);
    return value;
}

// "%lf,%lf,%lf" with all three numbers, over the text of whatever the symbol is bound
// to; fewer numbers count as unbound.
bool threeNumbers(const DtlObjPtr& value, double (&numbers)[3]) {
    if (value.isNull())
        return false;
    const char* text = value->string();
    return *text && std::sscanf(text, "%lf,%lf,%lf", &numbers[0], &numbers[1], &numbers[2]) == 3;
}

// The literals a "databaseType" value may begin with, each with the host's constant.
struct TypePrefix {
    const char* literal;
    const char* const* type;
};
const TypePrefix typePrefixes[] = {{"UTM", &DtCoordinateConverter::UTM},
                                   {"Lambert", &DtCoordinateConverter::Lambert},
                                   {"FlatEarth", &DtCoordinateConverter::FlatEarth},
                                   {"Geocentric", &DtCoordinateConverter::Geocentric}};

}  // namespace

// ---------------------------------------------------------------------- DtFileFinder

std::vector<std::string> DtFileFinder::directories(const DtString& pathList,
                                                   bool spacesCanBeDelimiters) {
    const std::string separators = spacesCanBeDelimiters ? "; " : ";";
    const std::string& text = pathList.stdString();
    std::vector<std::string> result;
    for (size_t begin = text.find_first_not_of(separators); begin != std::string::npos;) {
        const size_t end = text.find_first_of(separators, begin);
        result.push_back(
            text.substr(begin, end == std::string::npos ? std::string::npos : end - begin));
        begin = end == std::string::npos ? end : text.find_first_not_of(separators, end);
    }
    return result;
}

DtString DtFileFinder::nthPath(const DtString& pathList, unsigned int index,
                               bool spacesCanBeDelimiters) {
    const std::vector<std::string> list = directories(pathList, spacesCanBeDelimiters);
    return index < list.size() ? DtString(list[index]) : DtString();
}

DtString DtFileFinder::findFile(const DtString& pathList, const DtString& name,
                                bool spacesCanBeDelimiters) {
    for (const std::string& directory : directories(pathList, spacesCanBeDelimiters)) {
        const DtString candidate(directory + "/" + name.stdString());
        if (fileExists(candidate))
            return candidate;
    }
    return DtString();
}

bool DtFileFinder::fileExists(const DtString& pathToTest) {
    return std::unique_ptr<FILE, FileCloser>(std::fopen(pathToTest.c_str(), "rb")) != nullptr;
}

// ---------------------------------------------------------------------- DtSorrelKslFileReader

DtSorrelKslFileReader::DtSorrelKslFileReader() : type_(DtCoordinateConverter::UTM) {}

DtSorrelKslFileReader::~DtSorrelKslFileReader() {
    clear();
}

bool DtSorrelKslFileReader::load(const char* name) {
    DtKslEnvironment environment;
    std::string path = name ? name : "";
    environment.loadLispFile(&path[0], 1);
    return load(&environment);
}

bool DtSorrelKslFileReader::load(DtKslEnvironment* environment) {
    return environment && lookupParameters(environment);
}

void DtSorrelKslFileReader::clear() {
    while (DtListItem* item = filenames_.first())
        filenames_.remove(item);
    ownedFilenames_.clear();
    startAltitude_.reset();
    startPosition_.reset();
    startOrientation_.reset();
    mapName_.reset();
    loadAsynchronous_ = true;
    mapDatum_ = DtString();
}

bool DtSorrelKslFileReader::lookupParameters(DtKslEnvironment* environment) {
    lookupType(environment);
    lookupOrigin(environment);
    lookupFilenames(environment);
    if (DtlObjPtr datum = valueOf(environment, "geodeticMapDatum"); !datum.isNull()) {
        mapDatum_ = DtString(datum->string());
    }
    if (DtlObjPtr altitude = valueOf(environment, "startAltitude"); !altitude.isNull()) {
        startAltitude_ = std::make_unique<double>(altitude->flonum());
    }
    double numbers[3];
    if (threeNumbers(valueOf(environment, "startPosition"), numbers)) {
        startPosition_ = std::make_unique<DtVector64>(numbers[0], numbers[1], numbers[2]);
    }
    if (threeNumbers(valueOf(environment, "startOrientation", "StartOrientation"), numbers)) {
        startOrientation_ = std::make_unique<DtTaitBryan>(
            DtDeg2Rad(numbers[0]), DtDeg2Rad(numbers[1]), DtDeg2Rad(numbers[2]));
    }
    if (DtlObjPtr map = valueOf(environment, "databaseMap"); !map.isNull()) {
        mapName_ = std::make_unique<DtString>(
            finder_.findFile(currentPath_, DtString(map->string()), false));
    }
    if (DtlObjPtr asynchronous = valueOf(environment, "loadAsynchronous"); !asynchronous.isNull()) {
        loadAsynchronous_ = asynchronous->fixnum() != 0;
    }
    // Takes effect on the next load: the patches of this one were searched already.
    if (DtlObjPtr spaces = valueOf(environment, "spacesCanBeDelimiters"); !spaces.isNull()) {
        spacesCanBeDelimiters_ = spaces->fixnum() != 0;
    }
    return true;
}

int DtSorrelKslFileReader::lookupType(DtKslEnvironment* environment) {
    const DtlObjPtr value = valueOf(environment, "databaseType", "DatabaseType");
    if (value.isNull())
        return 0;
    const char* text = value->string();
    for (const TypePrefix& prefix : typePrefixes) {
        if (std::strncmp(text, prefix.literal, std::strlen(prefix.literal)) == 0) {
            type_ = DtString(*prefix.type);
            return 1;
        }
    }
    return 0;
}

int DtSorrelKslFileReader::lookupOrigin(DtKslEnvironment* environment) {
    origin_ = DtString();
    const DtlObjPtr value = valueOf(environment, "databaseOrigin", "DatabaseOrigin");
    if (value.isNull())
        return 0;
    origin_ = DtString(value->string());
    return 1;
}

int DtSorrelKslFileReader::lookupFilenames(DtKslEnvironment* environment) {
    clear();
    const DtlObjPtr& global = environment->globalEnvironment();
    char first[] = "databaseName";
    char second[] = "DatabaseName";
    DtlObjPtr symbol = DtcIntern(first, global);
    if (!DtcBoundp(symbol, global))
        symbol = DtcIntern(second, global);
    if (!DtcBoundp(symbol, global))
        return 0;
    const DtlObjPtr value = DtcSymeval(symbol, global);
    return DtcNull(value) ? 0 : getPathPatchLists(value);
}

// The walks below go along a list in a loop: a list may be as long as a file allows.
int DtSorrelKslFileReader::getPathPatchLists(const DtlObjPtr& list) {
    int count = 0;
    for (DtlObjPtr rest = list;; rest = DtcCdr(rest)) {
        if (DtcNull(rest))
            return count;
        if (!DtcListp(rest)) {
            DtWarn << "non-list path DtSorrelKslFileReader::getPathPatchLists\n";
            return count;
        }
        count += getPathPatchList(DtcCar(rest));
    }
}

int DtSorrelKslFileReader::getPathPatchList(const DtlObjPtr& group) {
    if (DtcNull(group))
        return 0;
    if (!DtcListp(group)) {
        DtWarn << "Non-list to getPathPatchList";
        return 0;
    }
    const DtlObjPtr path = DtcCar(group);
    if (!DtcStringp(path)) {
        DtWarn << "Non-string path to getPathPatchList\n";
        return 0;
    }
    currentPath_ = DtString(path->string());
    return addListOfPatches(currentPath_.c_str(), DtcCdr(group));
}

int DtSorrelKslFileReader::addListOfPatches(const char* path, const DtlObjPtr& list) {
    const DtString directories(path);
    int count = 0;
    for (DtlObjPtr rest = list;; rest = DtcCdr(rest)) {
        if (DtcNull(rest))
            return count;
        if (!DtcListp(rest)) {
            DtWarn << "Bad patch list in DtSorrelKslFileReader::addListOfPatches\n";
            return count;
        }
        const DtlObjPtr name = DtcCar(rest);
        if (!DtcStringp(name)) {
            DtWarn << "non-string patch name in DtSorrelKslFileReader::addListOfPatches\n";
            return count;
        }
        const DtString found =
            finder_.findFile(directories, DtString(name->string()), spacesCanBeDelimiters_);
        if (!found.isEmpty()) {
            ownedFilenames_.push_back(std::make_unique<DtFilename>(found.stdString()));
            filenames_.add(ownedFilenames_.back().get());
        }
        ++count;
    }
}

}  // namespace kelZor
