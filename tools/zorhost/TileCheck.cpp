#include "TileCheck.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>

#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtTilePathGenerator.h"

using kelZor::DtMetaFlightDescription;
using kelZor::DtTilePathGenerator;

namespace {

namespace fs = std::filesystem;

const size_t chunkTiles = 8192;

// The names of one level's tiles.
struct LevelNames {
    unsigned rows = 0, columns = 0;
    std::function<void(unsigned row, unsigned col, std::string& out)> path;
};

// A dataset of the document, geometry or virtual texture alike.
struct Dataset {
    std::string key;
    bool virtualTexture = false;
    unsigned levels = 0;

    LevelNames names(const DtMetaFlightDescription& d, unsigned level) const {
        LevelNames names;
        if (!virtualTexture) {
            auto generator = std::make_shared<DtTilePathGenerator>(d, key, static_cast<int>(level));
            names.rows = generator->rows();
            names.columns = generator->columns();
            names.path = [generator](unsigned row, unsigned col, std::string& out) {
                generator->path(row, col, out);
            };
        } else {
            names.rows = d.virtualTextureGridLevelRows(key, static_cast<int>(level));
            names.columns = d.virtualTextureGridLevelColumns(key, static_cast<int>(level));
            names.path = [&d, name = key, level](unsigned row, unsigned col, std::string& out) {
                out = d.generateVirtualTextureFileName(name, static_cast<int>(level), row, col);
            };
        }
        return names;
    }
};

std::vector<Dataset> datasetsOf(const DtMetaFlightDescription& d) {
    std::vector<Dataset> all;
    for (unsigned i = 0; i < d.numberOfGeometryDatasets(); ++i) {
        const std::string& key = d.geometryDatasetName(static_cast<int>(i));
        all.push_back({key, false, d.numberOfGeometryGridLevels(key)});
    }
    for (unsigned i = 0; i < d.numberOfVirtualTextureDatasets(); ++i) {
        const std::string& key = d.virtualTextureDatasetName(static_cast<int>(i));
        all.push_back({key, true, d.numberOfVirtualTextureGridLevels(key)});
    }
    return all;
}

// Where tile paths must stay: the document's directory, as the paths begin with it.
class Database {
public:
    explicit Database(const DtMetaFlightDescription& d)
        : prefix_(DtTilePathGenerator::pathContext(d.fileName()).prefix) {
        normalPrefix_ =
            prefix_.empty() ? "" : fs::path(prefix_).lexically_normal().generic_string();
        if (!normalPrefix_.empty() && normalPrefix_.back() != '/')
            normalPrefix_ += '/';
        if (normalPrefix_ == "./")
            normalPrefix_.clear();
        document_ = fs::path(d.fileName()).lexically_normal().generic_string();
    }

    // Makes the path plain where it climbs or repeats separators; false when it then
    // leaves the database.
    bool inside(std::string& path) const {
        const bool plain =
            path.compare(0, prefix_.size(), prefix_) == 0 &&
            path.find("/.", prefix_.empty() ? 0 : prefix_.size() - 1) == std::string::npos &&
            path.find("//", prefix_.size()) == std::string::npos &&
            path.compare(prefix_.size(), 1, "/") != 0 &&
            path.compare(prefix_.size(), 2, "./") != 0 &&
            path.compare(prefix_.size(), 3, "../") != 0;
        if (plain)
            return true;
        std::string normal = fs::path(path).lexically_normal().generic_string();
        const bool within =
            normalPrefix_.empty()
                ? !normal.empty() && normal[0] != '/' && normal.compare(0, 2, "..") != 0
                : normal.size() > normalPrefix_.size() &&
                      normal.compare(0, normalPrefix_.size(), normalPrefix_) == 0;
        if (within)
            path = std::move(normal);
        return within;
    }
    const std::string& document() const { return document_; }

private:
    std::string prefix_, normalPrefix_, document_;
};

// The deepest directory both hold, by whole components; "" for none.
void narrowRoot(std::string& root, bool& any, const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash);
    if (!any) {
        root = directory;
        any = true;
        return;
    }
    size_t same = 0;
    while (same < root.size() && same < directory.size() && root[same] == directory[same])
        ++same;
    const bool whole = (same == root.size() || root[same] == '/') &&
                       (same == directory.size() || directory[same] == '/');
    if (whole) {
        root.resize(same);
        return;
    }
    const size_t cut = root.rfind('/', same);
    root = cut == std::string::npos ? "." : root.substr(0, cut);
}

// Each non-directory under the roots, sorted; a root inside another is walked once.
std::vector<std::string> walk(std::vector<std::string> roots, const std::string& document) {
    std::sort(roots.begin(), roots.end());
    std::vector<std::string> files, walked;
    for (const std::string& root : roots) {
        const bool nested = std::any_of(walked.begin(), walked.end(), [&](const std::string& w) {
            return w == "." || (root.compare(0, w.size(), w) == 0 &&
                                (root.size() == w.size() || root[w.size()] == '/'));
        });
        if (nested)
            continue;
        walked.push_back(root);
        std::error_code error;
        fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied,
                                            error);
        for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
            std::error_code ignored;
            if (it->is_directory(ignored))
                continue;
            std::string path = it->path().generic_string();
            if (root == "." && path.compare(0, 2, "./") == 0)
                path.erase(0, 2);
            if (path != document)
                files.push_back(std::move(path));
        }
    }
    std::sort(files.begin(), files.end());
    files.erase(std::unique(files.begin(), files.end()), files.end());
    return files;
}

TileState stateOf(const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode))
        return TileState::Missing;
    if (::access(path.c_str(), R_OK) != 0)
        return TileState::Unreadable;
    return info.st_size == 0 ? TileState::Empty : TileState::Present;
}

// Stats the files at `which` on a few threads: a network file system answers each slowly.
void statInParallel(const std::vector<std::string>& paths, const std::vector<size_t>& which,
                    std::vector<TileState>& states, int threads) {
    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t i = next++; i < which.size(); i = next++)
            states[which[i]] = stateOf(paths[which[i]]);
    };
    const size_t helpers = std::min<size_t>(std::max(0, threads - 1), which.size() / 64);
    std::vector<std::thread> pool;
    for (size_t i = 0; i < helpers; ++i)
        pool.emplace_back(work);
    work();
    for (std::thread& t : pool)
        t.join();
}

void count(LevelTally& tally, TileState state) {
    ++tally.tiles;
    switch (state) {
        case TileState::Present:
            ++tally.present;
            break;
        case TileState::Missing:
            ++tally.missing;
            break;
        case TileState::Empty:
            ++tally.empty;
            break;
        case TileState::Unreadable:
            ++tally.unreadable;
            break;
        case TileState::Outside:
            ++tally.outside;
            break;
    }
}

}  // namespace

const char* tileStateName(TileState state) {
    switch (state) {
        case TileState::Present:
            return "present";
        case TileState::Missing:
            return "missing";
        case TileState::Empty:
            return "empty";
        case TileState::Unreadable:
            return "unreadable";
        case TileState::Outside:
            return "outside";
    }
    return "?";
}

void checkTiles(const DtMetaFlightDescription& d, const TileCheckPlan& plan,
                const TileCheckVisitor& visit) {
    const std::vector<Dataset> all = datasetsOf(d);
    std::vector<bool> chosen(all.size(), plan.datasets.empty());
    for (const std::string& key : plan.datasets) {
        const auto found = std::find_if(all.begin(), all.end(),
                                        [&](const Dataset& set) { return set.key == key; });
        if (found == all.end()) {
            std::string keys;
            for (const Dataset& set : all)
                keys += (keys.empty() ? "" : ", ") + set.key;
            throw std::invalid_argument("no dataset \"" + key + "\"; the document has " +
                                        (keys.empty() ? std::string("none") : keys));
        }
        chosen[found - all.begin()] = true;
    }
    auto levelChosen = [&](unsigned level) {
        return plan.levels.empty() ||
               std::find(plan.levels.begin(), plan.levels.end(), level) != plan.levels.end();
    };
    for (size_t i = 0; i < all.size(); ++i) {
        for (unsigned level : plan.levels) {
            if (chosen[i] && level >= all[i].levels) {
                throw std::invalid_argument("level " + std::to_string(level) +
                                            " is out of range: dataset \"" + all[i].key +
                                            "\" has " + std::to_string(all[i].levels) + " levels");
            }
        }
    }
    const Database database(d);

    // Each chosen dataset's directory, from every tile it names; and what there is to do.
    std::vector<CheckedDataset> checked(all.size());
    uint64_t total = 0;
    std::string path;
    for (size_t i = 0; i < all.size(); ++i) {
        if (!chosen[i])
            continue;
        CheckedDataset& c = checked[i];
        c.key = all[i].key;
        c.virtualTexture = all[i].virtualTexture;
        bool any = false;
        for (unsigned level = 0; level < all[i].levels; ++level) {
            const LevelNames names = all[i].names(d, level);
            if (levelChosen(level))
                total += static_cast<uint64_t>(names.rows) * names.columns;
            for (unsigned row = 0; row < names.rows; ++row) {
                for (unsigned col = 0; col < names.columns; ++col) {
                    names.path(row, col, path);
                    if (database.inside(path)) {
                        narrowRoot(c.root, any, path);
                    } else if (levelChosen(level)) {
                        if (c.outside++ == 0)
                            c.outsideExample = path;  // left as generated
                    }
                }
            }
        }
    }
    std::vector<std::string> roots;
    for (size_t i = 0; i < all.size(); ++i) {
        if (chosen[i] && !checked[i].root.empty())
            roots.push_back(checked[i].root);
    }
    const std::vector<std::string> files = walk(roots, database.document());
    std::vector<bool> named(files.size(), false);

    // Every tile of every dataset names its file; the chosen ones are reported.
    uint64_t done = 0;
    std::vector<std::string> paths(chunkTiles);
    std::vector<std::string> generated(chunkTiles);
    std::vector<TileState> states(chunkTiles);
    std::vector<size_t> found;
    for (size_t i = 0; i < all.size(); ++i) {
        if (chosen[i] && visit.dataset)
            visit.dataset(checked[i]);
        if (!chosen[i] && files.empty())
            continue;
        for (unsigned level = 0; level < all[i].levels; ++level) {
            const bool reported = chosen[i] && levelChosen(level);
            if (!reported && files.empty())
                continue;
            const LevelNames names = all[i].names(d, level);
            LevelTally tally;
            tally.dataset = all[i].key;
            tally.virtualTexture = all[i].virtualTexture;
            tally.level = level;
            const uint64_t tiles = static_cast<uint64_t>(names.rows) * names.columns;
            for (uint64_t start = 0; start < tiles; start += chunkTiles) {
                const size_t n = static_cast<size_t>(std::min<uint64_t>(chunkTiles, tiles - start));
                found.clear();
                for (size_t k = 0; k < n; ++k) {
                    const uint64_t t = start + k;
                    names.path(static_cast<unsigned>(t / names.columns),
                               static_cast<unsigned>(t % names.columns), paths[k]);
                    if (reported)
                        generated[k] = paths[k];
                    if (!database.inside(paths[k])) {
                        states[k] = TileState::Outside;
                        continue;
                    }
                    const auto at = std::lower_bound(files.begin(), files.end(), paths[k]);
                    const bool onDisk = at != files.end() && *at == paths[k];
                    if (onDisk)
                        named[at - files.begin()] = true;
                    states[k] = TileState::Missing;
                    if (onDisk && reported)
                        found.push_back(k);
                }
                if (!reported)
                    continue;
                statInParallel(paths, found, states, plan.threads);
                for (size_t k = 0; k < n; ++k) {
                    const uint64_t t = start + k;
                    count(tally, states[k]);
                    if (visit.tile) {
                        visit.tile({&all[i].key, all[i].virtualTexture, level,
                                    static_cast<unsigned>(t / names.columns),
                                    static_cast<unsigned>(t % names.columns), states[k],
                                    &generated[k]});
                    }
                }
                done += n;
                if (visit.progress)
                    visit.progress(done, total);
            }
            if (reported && visit.level)
                visit.level(tally);
        }
    }
    for (size_t k = 0; k < files.size(); ++k) {
        if (!named[k] && visit.extra)
            visit.extra(files[k]);
    }
}
