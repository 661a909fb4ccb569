// zorhost's outputs under the faults a user meets: a full disk (a file size limit, a
// small tmpfs), pipes and devices as targets, links planted at temporary names, signals
// in the middle of a long write, a killed run's leftovers, two runs racing for one name,
// a rename failing in the middle of a set, permissions. Each fault is made to happen in a
// child zorhost; what must hold is that the target is the old file or the new one, whole,
// and nothing else is left.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "VectorFiles.h"
#include "ZorhostRun.h"

namespace fs = std::filesystem;

namespace {

const std::string sample = std::string(ZOR_SAMPLE_DIR) + "/";

// Under a sanitizer every run costs several times as much: fewer of the repeated ones.
#ifdef ZOR_SANITIZED
const int bigPointCount = 300000;
const int racingPairs = 6;
#else
const int bigPointCount = 1000000;
const int racingPairs = 20;
#endif
const std::string dem = sample + "n45_e009.dt0";
const std::string gdb = sample + "valley.gdb";

// The temporaries a run left in `directory`.
size_t leftovers(const std::string& directory) {
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(directory))
        count += entry.path().filename().string().rfind(".zorhost-", 0) == 0;
    return count;
}

// A zorhost child started with fork and exec, so that the test can limit it, signal it
// or change its user. `setup` runs in the child before exec (async-signal-safe calls).
class Child {
public:
    Child(const std::vector<std::string>& arguments, const std::function<void()>& setup = {}) {
        std::vector<std::string> words = {ZORHOST_PATH};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (std::string& w : words)
            argv.push_back(w.data());
        argv.push_back(nullptr);
        const std::string out = dir_.file("out"), err = dir_.file("err");
        pid_ = ::fork();
        if (pid_ == 0) {
            if (::chdir(ZOR_SOURCE_DIR) != 0)
                ::_exit(127);
            ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), 1);
            ::dup2(::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), 2);
            ::chmod(out.c_str(), 0666);
            ::chmod(err.c_str(), 0666);
            if (setup)
                setup();
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
    }
    pid_t pid() const { return pid_; }
    // The raw wait status.
    int wait() {
        int raw = 0;
        ::waitpid(pid_, &raw, 0);
        return raw;
    }
    std::string out() const { return slurp(dir_.file("out")); }
    std::string err() const { return slurp(dir_.file("err")); }

private:
    TempDir dir_;
    pid_t pid_ = -1;
};

// Every file of `directory` (not its temporaries) with its bytes.
std::map<std::string, std::string> filesOf(const std::string& directory) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(directory)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && name.rfind(".zorhost-", 0) != 0)
            files[name] = slurp(entry.path().string());
    }
    return files;
}

void limitFileSize(rlim_t bytes) {
    const struct rlimit limit = {bytes, bytes};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::signal(SIGXFSZ, SIG_IGN);
}

// A point shapefile of `count` points with a feature code, in WGS84.
std::string writePoints(const TempDir& dir, int count) {
    const std::string path = dir.file("points.shp");
    std::vector<TestFeature> points;
    points.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        points.push_back({"POINT (" + std::to_string(9.0 + (i % 1000) * 1e-4) + " " +
                              std::to_string(45.0 + (i / 1000) * 1e-4) + ")",
                          {{"ECC", "AL015"}},
                          {},
                          {}});
    }
    EXPECT_TRUE(writeVector(path, srsFromEpsg(4326).get(), points));
    return path;
}

// zorhost view under a display, with "status N" its own exit status (not xvfb-run's,
// whose cleanup may fail on a busy machine).
std::string view(const std::string& arguments, const std::string& before = "") {
    const char* display = std::getenv("DISPLAY");
    const std::string onDisplay =
        display && *display ? "" : "xvfb-run -a -s '-screen 0 1280x1024x24' ";
    const std::string command = std::string("cd '") + ZOR_SOURCE_DIR +
                                "' && LIBGL_ALWAYS_SOFTWARE=1 LP_NUM_THREADS=0 "
                                "ASAN_OPTIONS=\"$ASAN_OPTIONS:detect_leaks=0\" " +
                                onDisplay + "sh -c \"" + before + " '" + ZORHOST_PATH + "' view " +
                                arguments + "; echo status \\$?\" 2>&1";
    return shell(command);
}

}  // namespace

// A full disk or a file size limit, for every kind of output: status 1, one line naming
// the target and the reason, the old file as it was, no temporary left.
TEST(ZorhostOutputs, aShortWriteFailsAndLeavesTheOldFile) {
    TempDir dir;
    const std::string mft = sample + "metaflight/alpine_valley.mft";
    struct Case {
        std::string target;
        std::vector<std::string> arguments;
        std::vector<std::string> companions;
    };
    const std::string out = dir.path() + "/";
    const std::vector<Case> cases = {
        {out + "f.geojson", {"features", gdb, "--geojson", out + "f.geojson"}, {}},
        {out + "t.geojson",
         {"tiles", sample + "metaflight/valley_tiles.mft", "--dataset", "Terrain", "--geojson",
          out + "t.geojson"},
         {}},
        {out + "m.png",
         {"map", out + "m.png", "--terrain", dem, "--features", gdb, "--size", "400x400"},
         {out + "m.pgw", out + "m.png.aux.xml"}},
        {out + "m.tif", {"map", out + "m.tif", "--terrain", dem, "--size", "400x400"}, {}},
        {out + "c.png",
         {"check", sample + "metaflight/valley_tiles.mft", "--map", out + "c.png"},
         {out + "c.pgw", out + "c.png.aux.xml"}},
        {out + "p.mft", {"publish", mft, out + "p.mft"}, {}},
        {out + "v.osgb", {"view", "--terrain", dem, "--osgb", out + "v.osgb"}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.target);
        std::vector<std::string> arguments = c.arguments;
        arguments.push_back("--overwrite");
        // A good set first, then the same again with room for a few bytes only.
        Child good(arguments);
        ASSERT_TRUE(WIFEXITED(good.wait())) << good.err();
        ASSERT_TRUE(fs::exists(c.target)) << good.err();
        const auto before = filesOf(dir.path());
        Child full(arguments, [] { limitFileSize(600); });
        const int raw = full.wait();
        ASSERT_TRUE(WIFEXITED(raw)) << full.err();
        EXPECT_EQ(WEXITSTATUS(raw), 1) << full.err();
        EXPECT_NE(full.err().find(c.target), std::string::npos) << full.err();
        EXPECT_NE(full.err().find("File too large"), std::string::npos) << full.err();
        EXPECT_EQ(filesOf(dir.path()), before);
        EXPECT_EQ(leftovers(dir.path()), 0u);
    }
}

// The same on a file system that is really full, where one may be mounted.
TEST(ZorhostOutputs, aFullFileSystemFailsAndLeavesTheOldFile) {
    TempDir dir;
    const std::string mount = dir.file("small");
    fs::create_directory(mount);
    if (std::system(("mount -t tmpfs -o size=96k tmpfs '" + mount + "' 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "no tmpfs can be mounted here (not root, or not allowed)";
    const std::string target = mount + "/f.geojson";
    const ZorhostRun small = zorhost("features " + gdb + " --geojson " + target + " --overwrite");
    EXPECT_EQ(small.status, 0) << small.err;
    const std::string good = slurp(target);
    // What is left of the room, taken: the next write does not fit.
    std::system(("dd if=/dev/zero of='" + mount + "/filler' bs=1k count=200 2>/dev/null").c_str());
    const ZorhostRun full =
        zorhost("features " + gdb + " --code-field FCODE --geojson " + target + " --overwrite");
    EXPECT_EQ(full.status, 1) << full.err;
    EXPECT_NE(full.err.find("No space left on device"), std::string::npos) << full.err;
    EXPECT_EQ(slurp(target), good);
    EXPECT_EQ(leftovers(mount), 0u);
    std::system(("umount '" + mount + "'").c_str());
}

// view's picture under a file size limit too (a display is needed, so by the shell).
TEST(ZorhostOutputs, aShortPictureOfTheViewFails) {
    TempDir dir;
    const std::string png = dir.file("v.png");
    const std::string good = view("--terrain " + dem + " --size 200x150 --png " + png);
    ASSERT_NE(good.find("status 0"), std::string::npos) << good;
    const std::string before = slurp(png);
    const std::string full =
        view("--terrain " + dem + " --size 200x150 --png " + png + " --overwrite",
             "ulimit -f 1; trap '' XFSZ;");
    EXPECT_NE(full.find("status 1"), std::string::npos) << full;
    EXPECT_NE(full.find(png + ": cannot be written: File too large"), std::string::npos) << full;
    EXPECT_EQ(slurp(png), before);
    EXPECT_EQ(leftovers(dir.path()), 0u);
}

// Pipes, devices and standard output are written through, never replaced; a link is
// followed and stays a link; a replaced file keeps its mode.
TEST(ZorhostOutputs, whatIsNoRegularFileIsWrittenThroughAndLinksAndModesStay) {
    TempDir dir;
    const std::string fifo = dir.file("pipe.geojson");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::string received;
    std::thread reader([&] { received = slurp(fifo); });
    const ZorhostRun piped = zorhost("features " + gdb + " --geojson " + fifo + " --overwrite");
    reader.join();
    EXPECT_EQ(piped.status, 0) << piped.err;
    EXPECT_NE(received.find("\"FeatureCollection\""), std::string::npos);
    EXPECT_TRUE(fs::is_fifo(fifo));

    // A character device (root may make one: /dev/null's numbers).
    const std::string device = dir.file("null.geojson");
    if (::mknod(device.c_str(), S_IFCHR | 0666, makedev(1, 3)) == 0) {
        const ZorhostRun onDevice =
            zorhost("features " + gdb + " --geojson " + device + " --overwrite");
        EXPECT_EQ(onDevice.status, 0) << onDevice.err;
        EXPECT_TRUE(fs::is_character_file(device));
        const std::string picture = dir.file("null.png");
        ASSERT_EQ(::mknod(picture.c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
        const ZorhostRun drawn = zorhost("map " + picture + " --terrain " + dem + " --overwrite");
        EXPECT_EQ(drawn.status, 0) << drawn.err;
        EXPECT_TRUE(fs::is_character_file(picture));
        EXPECT_FALSE(fs::exists(dir.file("null.pgw")));  // a device has no companions
    } else {
        std::printf("mknod refused (not root): the character device case is skipped\n");
    }

    // "-" is standard output, the report then on stderr.
    const ZorhostRun stdoutRun = zorhost("features " + gdb + " --geojson -");
    EXPECT_EQ(stdoutRun.status, 0) << stdoutRun.err;
    EXPECT_EQ(stdoutRun.out.rfind("{", 0), 0u) << stdoutRun.out;
    EXPECT_NE(stdoutRun.err.find("features: 4 point"), std::string::npos) << stdoutRun.err;

    // A link: the file it names is replaced, the link stays; the mode stays.
    const std::string real = dir.write("real.geojson", "old");
    ::chmod(real.c_str(), 0600);
    fs::create_symlink("real.geojson", dir.file("link.geojson"));
    const ZorhostRun linked =
        zorhost("features " + gdb + " --geojson " + dir.file("link.geojson") + " --overwrite");
    EXPECT_EQ(linked.status, 0) << linked.err;
    EXPECT_TRUE(fs::is_symlink(dir.file("link.geojson")));
    EXPECT_NE(slurp(real).find("FeatureCollection"), std::string::npos);
    EXPECT_EQ(fs::status(real).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    // Without --overwrite a link counts as a file that exists, dangling or not.
    fs::create_symlink("nowhere", dir.file("dangling.geojson"));
    const ZorhostRun dangling =
        zorhost("features " + gdb + " --geojson " + dir.file("dangling.geojson"));
    EXPECT_EQ(dangling.status, 1);
    EXPECT_NE(dangling.err.find("exists; give --overwrite"), std::string::npos) << dangling.err;
    EXPECT_EQ(leftovers(dir.path()), 0u);
}

// Links planted at the names a temporary could have: nothing is written through them.
TEST(ZorhostOutputs, plantedLinksAreNeverWrittenThrough) {
    TempDir dir;
    const std::string victim = dir.write("victim", "precious");
    const std::string in = dir.file("in.mft");
    fs::copy_file(sample + "zone33_quad.mft", in);
    // The names the old publish used, for the pid the run will have (the shell's own).
    const std::string command = "cd '" + dir.path() + "' && sh -c 'for n in 0 1 2 3; do ln -s " +
                                victim + " out.mft.tmp-$$-$n; done; exec " + ZORHOST_PATH +
                                " publish in.mft out.mft --medf' 2>&1";
    const std::string said = shell(command);
    EXPECT_NE(said.find("published in.mft to out.mft"), std::string::npos) << said;
    EXPECT_EQ(slurp(victim), "precious");
    EXPECT_NE(slurp(dir.file("out.mft")).find("medf"), std::string::npos);
}

// SIGINT and SIGTERM at several moments of a long write: the process dies of the signal
// (as a shell sees it), no temporary is left and the target is the old file or the new.
TEST(ZorhostOutputs, aSignalLeavesNoTemporaryAndTheTargetWhole) {
    TempDir data, dir;
    const std::string points = writePoints(data, bigPointCount);
    const std::string target = dir.write("big.geojson", "old");
    const std::vector<std::string> geojson = {"features", points, "--geojson", target,
                                              "--overwrite"};
    const std::vector<std::string> map = {"map",    dir.file("big.png"), "--terrain",  dem,
                                          "--size", "8000x8000",         "--overwrite"};
    for (const auto* arguments : {&geojson, &map}) {
        for (int signal : {SIGINT, SIGTERM}) {
            for (int moment : {50, 400, 1500}) {
                SCOPED_TRACE((*arguments)[0] + " signal " + std::to_string(signal) + " after " +
                             std::to_string(moment) + " ms");
                Child run(*arguments);
                std::this_thread::sleep_for(std::chrono::milliseconds(moment));
                ::kill(run.pid(), signal);
                const int raw = run.wait();
                if (WIFSIGNALED(raw))
                    EXPECT_EQ(WTERMSIG(raw), signal);
                else
                    EXPECT_EQ(WEXITSTATUS(raw), 0) << run.err();  // done before the signal
                EXPECT_EQ(leftovers(dir.path()), 0u);
                EXPECT_EQ(slurp(target), "old");
            }
        }
    }
}

// A run killed outright leaves its temporary; the next run writing beside it removes it.
TEST(ZorhostOutputs, aKilledRunsTemporaryGoesWithTheNextRun) {
    TempDir data, dir;
    const std::string points = writePoints(data, 300000);
    Child killed({"features", points, "--geojson", dir.file("a.geojson")});
    for (int i = 0; i < 200 && leftovers(dir.path()) == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ::kill(killed.pid(), SIGKILL);
    killed.wait();
    ASSERT_EQ(leftovers(dir.path()), 1u);
    const ZorhostRun next = zorhost("features " + gdb + " --geojson " + dir.file("b.geojson"));
    EXPECT_EQ(next.status, 0) << next.err;
    EXPECT_EQ(leftovers(dir.path()), 0u);
    EXPECT_FALSE(fs::exists(dir.file("a.geojson")));
}

// Two runs racing for one new name without --overwrite: exactly one succeeds, and the
// set on disk is that run's whole.
TEST(ZorhostOutputs, ofTwoRacingRunsExactlyOneWins) {
    TempDir dir;
    for (int pair = 0; pair < racingPairs; ++pair) {
        SCOPED_TRACE(pair);
        const std::string png = dir.file("race" + std::to_string(pair) + ".png");
        const std::vector<std::string> arguments = {"map", png,      "--features",
                                                    gdb,   "--size", "64x64"};
        Child first(arguments), second(arguments);
        const int a = first.wait(), b = second.wait();
        ASSERT_TRUE(WIFEXITED(a) && WIFEXITED(b));
        EXPECT_EQ((WEXITSTATUS(a) == 0) + (WEXITSTATUS(b) == 0), 1) << first.err() << second.err();
        const std::string loser = WEXITSTATUS(a) == 0 ? second.err() : first.err();
        EXPECT_NE(loser.find("exists; give --overwrite"), std::string::npos) << loser;
        EXPECT_TRUE(fs::exists(png) &&
                    fs::exists(dir.file("race" + std::to_string(pair) + ".pgw")));
    }
    EXPECT_EQ(leftovers(dir.path()), 0u);
}

// A rename failing at each step of replacing a picture's set (a shim in the child fails
// the n-th rename): the old set stands whole, or the new one does.
TEST(ZorhostOutputs, aSetIsReplacedWholeOrNotAtAll) {
    TempDir dir;
    const std::string png = dir.file("set.png");
    const std::string base = "map " + png + " --terrain " + dem + " --size 120x100 --overwrite";
    ASSERT_EQ(zorhost(base).status, 0);
    const auto old = filesOf(dir.path());
    ASSERT_EQ(old.size(), 3u);  // the picture, its world file, its .aux.xml
    bool replaced = false;
    for (int n = 1; n <= 8 && !replaced; ++n) {
        SCOPED_TRACE("rename " + std::to_string(n) + " fails");
        const ZorhostRun run = zorhost(base + " --title 'another picture'",
                                       "LD_PRELOAD=" + std::string(ZOR_FAILING_RENAME) +
                                           " ZOR_FAIL_RENAME=" + std::to_string(n) +
                                           " ASAN_OPTIONS=\"$ASAN_OPTIONS:verify_asan_link_"
                                           "order=0\"");
        const auto now = filesOf(dir.path());
        if (run.status == 0) {
            replaced = true;  // every rename was done before the n-th
            EXPECT_NE(now.at("set.png"), old.at("set.png"));
        } else {
            EXPECT_EQ(run.status, 1) << run.err;
            EXPECT_NE(run.err.find("Input/output error"), std::string::npos) << run.err;
            EXPECT_EQ(now, old);
        }
        EXPECT_EQ(leftovers(dir.path()), 0u);
    }
    EXPECT_TRUE(replaced);
}

// Permissions, as a user without them (root's own runs ignore them): an output directory
// that cannot be written, and a tile directory that cannot be read.
TEST(ZorhostOutputs, whatAUserMayNotTouchIsSaid) {
    TempDir dir;
    ::chmod(dir.path().c_str(), 0755);
    fs::copy(sample + "metaflight", dir.file("db"), fs::copy_options::recursive);
    const std::string document = dir.file("db/valley_tiles.mft");
    fs::permissions(dir.file("db/Terrain/L1"), fs::perms::none);
    const auto asNobody = [] {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(126);
    };
    Child check({"check", document}, asNobody);
    const int raw = check.wait();
    if (WIFEXITED(raw) && WEXITSTATUS(raw) == 126)
        GTEST_SKIP() << "cannot become uid 65534 here";
    EXPECT_EQ(WEXITSTATUS(raw), 1) << check.err();
    EXPECT_NE(check.out().find("level 1: 16 tiles, 0 present, 16 in an unreadable directory"),
              std::string::npos)
        << check.out();
    EXPECT_NE(check.err().find("L1: cannot be read: Permission denied"), std::string::npos)
        << check.err();

    // A dataset directory that is a link out of the database is reported, not walked.
    fs::permissions(dir.file("db/Terrain/L1"), fs::perms::owner_all);
    fs::rename(dir.file("db/Terrain"), dir.file("elsewhere"));
    fs::create_directory_symlink(dir.file("elsewhere"), dir.file("db/Terrain"));
    const ZorhostRun linked = zorhost("check " + document + " --list all");
    EXPECT_EQ(linked.status, 1);
    EXPECT_NE(linked.err.find("a symbolic link, not followed out of the database"),
              std::string::npos)
        << linked.err;
    EXPECT_EQ(linked.out.find("extra\t"), std::string::npos) << linked.out;

    // An output directory the user may not write in.
    const std::string closed = dir.file("closed");
    fs::create_directory(closed);
    ::chmod(closed.c_str(), 0555);
    Child write({"features", gdb, "--geojson", closed + "/f.geojson"}, asNobody);
    EXPECT_EQ(WEXITSTATUS(write.wait()), 1);
    EXPECT_NE(write.err().find("Permission denied"), std::string::npos) << write.err();
}
