#include "TileCheck.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "LevelGrids.h"
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

    // Each level's totals, found once for all levels: a level's own would cost its depth.
    std::vector<LevelGrid> grids;

    LevelNames names(const DtMetaFlightDescription& d, unsigned level) const {
        LevelNames names;
        const int l = static_cast<int>(level);
        // A refused level never reaches here, so known totals fit 32 bits; a level the
        // library cannot answer is asked of it again, to say so as it always did.
        LevelGrid grid = level < grids.size() ? grids[level] : LevelGrid();
        if (!grid.known) {
            grid.rows = virtualTexture ? d.virtualTextureGridLevelRows(key, l)
                                       : d.geometryGridLevelRows(key, l);
            grid.columns = virtualTexture ? d.virtualTextureGridLevelColumns(key, l)
                                          : d.geometryGridLevelColumns(key, l);
        }
        if (!virtualTexture) {
            auto generator = std::make_shared<DtTilePathGenerator>(
                d, key, l, static_cast<unsigned>(grid.rows), static_cast<unsigned>(grid.columns));
            names.rows = generator->rows();
            names.columns = generator->columns();
            names.path = [generator](unsigned row, unsigned col, std::string& out) {
                generator->path(row, col, out);
            };
        } else {
            names.rows = static_cast<unsigned>(grid.rows);
            names.columns = static_cast<unsigned>(grid.columns);
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
        all.push_back({key, false, d.numberOfGeometryGridLevels(key), levelGrids(d, key, false)});
    }
    for (unsigned i = 0; i < d.numberOfVirtualTextureDatasets(); ++i) {
        const std::string& key = d.virtualTextureDatasetName(static_cast<int>(i));
        all.push_back(
            {key, true, d.numberOfVirtualTextureGridLevels(key), levelGrids(d, key, true)});
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

    // The first directory from the document's down to `root` that is a symbolic link
    // (the walk never leaves the database through one); "" when none is.
    std::string linkOnTheWay(const std::string& root) const {
        if (root.size() <= normalPrefix_.size())
            return "";
        for (size_t slash = root.find('/', normalPrefix_.size());;
             slash = root.find('/', slash + 1)) {
            const std::string step = root.substr(0, slash);
            struct stat info;
            if (::lstat(step.c_str(), &info) == 0 && S_ISLNK(info.st_mode))
                return step;
            if (slash == std::string::npos)
                return "";
        }
    }

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

// Whether this process may read a file of that mode and owner, as the kernel decides
// for the permission bits: an `access` call a file would cost as much again as its stat.
bool readable(const struct stat& info) {
    static const uid_t user = geteuid();
    static const gid_t group = getegid();
    static const std::vector<gid_t> groups = [] {
        std::vector<gid_t> all(static_cast<size_t>(std::max(0, getgroups(0, nullptr))));
        if (!all.empty() && getgroups(static_cast<int>(all.size()), all.data()) < 0)
            all.clear();
        return all;
    }();
    if (user == 0)
        return true;
    if (info.st_uid == user)
        return info.st_mode & S_IRUSR;
    const bool member = info.st_gid == group ||
                        std::find(groups.begin(), groups.end(), info.st_gid) != groups.end();
    return info.st_mode & (member ? S_IRGRP : S_IROTH);
}

TileState stateOf(const struct stat& info) {
    if (!readable(info))
        return TileState::Unreadable;
    return info.st_size == 0 ? TileState::Empty : TileState::Present;
}

// A file the walk found, and the state a tile there has.
struct FileOnDisk {
    std::string path;
    TileState state;
};

// Each non-directory under the roots with its state, read on a few threads that share
// a queue of directories: each reads a directory and stats its files by name from it, so
// a file costs one short lookup, and a network file system's slow answers overlap. A
// root inside another is walked once; a link to a directory is not followed, and is
// kept with the directories that could not be read.
class Walk {
public:
    Walk(std::vector<std::string> roots, const Database& database, int threads)
        : document_(database.document()) {
        std::sort(roots.begin(), roots.end());
        std::vector<std::string> walked;
        for (const std::string& root : roots) {
            const bool nested =
                std::any_of(walked.begin(), walked.end(), [&](const std::string& w) {
                    return w == "." || (root.compare(0, w.size(), w) == 0 &&
                                        (root.size() == w.size() || root[w.size()] == '/'));
                });
            if (nested)
                continue;
            if (const std::string link = database.linkOnTheWay(root); !link.empty())
                linked_.push_back(link);
            else
                walked.push_back(root);
        }
        queue_ = walked;
        const size_t workers = static_cast<size_t>(std::max(1, threads));
        found_.resize(workers);
        std::vector<std::thread> pool;
        for (size_t i = 1; i < workers; ++i)
            pool.emplace_back([this, i] { work(found_[i]); });
        work(found_[0]);
        for (std::thread& t : pool)
            t.join();
    }
    // Every file found, each thread's in turn.
    std::vector<FileOnDisk> files() {
        std::vector<FileOnDisk> all;
        for (std::vector<FileOnDisk>& some : found_) {
            for (FileOnDisk& file : some)
                all.push_back(std::move(file));
        }
        return all;
    }
    // Directories not walked: links out of the database, and those that could not be
    // read with why.
    const std::vector<std::string>& linked() const { return linked_; }
    const std::vector<std::pair<std::string, int>>& unreadable() const { return unreadable_; }

private:
    void work(std::vector<FileOnDisk>& found) {
        for (;;) {
            std::string directory;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                ready_.wait(lock, [this] { return !queue_.empty() || busy_ == 0; });
                if (queue_.empty())
                    return;  // none queued and none being read: no more will come
                directory = std::move(queue_.back());
                queue_.pop_back();
                ++busy_;
            }
            std::vector<std::string> below;
            read(directory, found, below);
            {
                const std::lock_guard<std::mutex> lock(mutex_);
                for (std::string& d : below)
                    queue_.push_back(std::move(d));
                --busy_;
            }
            ready_.notify_all();
        }
    }

    void read(const std::string& directory, std::vector<FileOnDisk>& found,
              std::vector<std::string>& below) {
        const int opened =
            ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        std::unique_ptr<DIR, int (*)(DIR*)> handle(opened < 0 ? nullptr : ::fdopendir(opened),
                                                   ::closedir);
        if (!handle) {
            const int error = errno;
            if (opened >= 0)
                ::close(opened);
            const std::lock_guard<std::mutex> lock(mutex_);
            if (error == ELOOP || error == ENOTDIR)
                linked_.push_back(directory);
            else if (error != ENOENT)
                unreadable_.emplace_back(directory, error);
            return;
        }
        const int fd = ::dirfd(handle.get());
        const std::string prefix = directory == "." ? "" : directory + "/";
        while (const dirent* entry = ::readdir(handle.get())) {
            const char* name = entry->d_name;
            if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
                continue;
            if (entry->d_type == DT_DIR) {
                below.push_back(prefix + name);
                continue;
            }
            struct stat info;
            const bool known = ::fstatat(fd, name, &info, 0) == 0;
            if (known && S_ISDIR(info.st_mode)) {
                struct stat own;
                const bool link =
                    entry->d_type == DT_LNK ||
                    (::fstatat(fd, name, &own, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(own.st_mode));
                if (!link) {
                    below.push_back(prefix + name);
                } else {
                    const std::lock_guard<std::mutex> lock(mutex_);
                    linked_.push_back(prefix + name);  // not followed
                }
                continue;
            }
            std::string path = prefix + name;
            if (path == document_)
                continue;
            found.push_back({std::move(path), known ? stateOf(info) : TileState::Unreadable});
        }
    }

    const std::string& document_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::vector<std::string> queue_;
    size_t busy_ = 0;
    std::vector<std::vector<FileOnDisk>> found_;
    std::vector<std::string> linked_;
    std::vector<std::pair<std::string, int>> unreadable_;
};

// The directories the walk did not enter, and what a tile under one of them is.
class Blocked {
public:
    explicit Blocked(const Walk& walk) {
        for (const std::string& d : walk.linked())
            all_.emplace_back(d, TileState::Outside);
        for (const auto& [d, error] : walk.unreadable())
            all_.emplace_back(d, TileState::UnreadableDirectory);
    }
    bool any() const { return !all_.empty(); }
    // The state of a tile the walk did not find at `path`.
    TileState stateOf(const std::string& path) const {
        for (const auto& [d, state] : all_) {
            if (path.size() > d.size() && path[d.size()] == '/' &&
                path.compare(0, d.size(), d) == 0)
                return state;
        }
        return TileState::Missing;
    }

private:
    std::vector<std::pair<std::string, TileState>> all_;
};

// The files found, by path: open addressing over each path's hash, so that a lookup
// touches one slot and, when the hash agrees, one path.
class FileIndex {
public:
    explicit FileIndex(const std::vector<FileOnDisk>& files) : files_(files) {
        size_t size = 16;
        while (size < files.size() * 2)
            size *= 2;
        slots_.assign(size, Slot{});
        for (uint32_t k = 0; k < files.size(); ++k) {
            const uint64_t hash = hashOf(files[k].path);
            for (size_t at = hash & (size - 1);; at = (at + 1) & (size - 1)) {
                if (slots_[at].index == empty) {
                    slots_[at] = {hash, k};
                    break;
                }
            }
        }
    }
    // The file's index, or -1.
    int64_t find(const std::string& path) const {
        const uint64_t hash = hashOf(path);
        const size_t mask = slots_.size() - 1;
        for (size_t at = hash & mask; slots_[at].index != empty; at = (at + 1) & mask) {
            if (slots_[at].hash == hash && files_[slots_[at].index].path == path)
                return slots_[at].index;
        }
        return -1;
    }

private:
    static constexpr uint32_t empty = 0xFFFFFFFFu;
    struct Slot {
        uint64_t hash = 0;
        uint32_t index = empty;
    };
    static uint64_t hashOf(const std::string& path) { return std::hash<std::string>()(path); }
    const std::vector<FileOnDisk>& files_;
    std::vector<Slot> slots_;
};

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
        case TileState::UnreadableDirectory:
            ++tally.unreadableDirectory;
            break;
    }
}

}  // namespace

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
    Walk walk(roots, database, plan.threads);
    const std::vector<FileOnDisk> files = walk.files();
    const Blocked blocked(walk);
    for (const auto& [directory, error] : walk.unreadable()) {
        if (visit.unreadableDirectory)
            visit.unreadableDirectory(directory, error);
    }
    for (const std::string& directory : walk.linked()) {
        if (visit.linkedDirectory)
            visit.linkedDirectory(directory);
    }
    const FileIndex onDisk(files);
    std::vector<bool> named(files.size(), false);

    // Every tile of every dataset names its file; the chosen ones are reported.
    uint64_t done = 0;
    std::vector<std::string> paths(chunkTiles);
    std::vector<std::string> generated(chunkTiles);
    std::vector<TileState> states(chunkTiles);
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
                    const int64_t file = onDisk.find(paths[k]);
                    states[k] = TileState::Missing;
                    if (file >= 0) {
                        named[static_cast<size_t>(file)] = true;
                        states[k] = files[static_cast<size_t>(file)].state;
                    } else if (blocked.any()) {
                        states[k] = blocked.stateOf(paths[k]);
                    }
                }
                if (!reported)
                    continue;
                for (size_t k = 0; k < n; ++k) {
                    const uint64_t t = start + k;
                    count(tally, states[k]);
                    if (visit.tile) {
                        visit.tile({&all[i].key, all[i].virtualTexture, level,
                                    static_cast<unsigned>(t / names.columns),
                                    static_cast<unsigned>(t % names.columns), names.rows,
                                    names.columns, states[k], &generated[k]});
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
    std::vector<const std::string*> extras;
    for (size_t k = 0; k < files.size(); ++k) {
        if (!named[k])
            extras.push_back(&files[k].path);
    }
    std::sort(extras.begin(), extras.end(),
              [](const std::string* a, const std::string* b) { return *a < *b; });
    for (const std::string* extra : extras) {
        if (visit.extra)
            visit.extra(*extra);
    }
}
