#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "TempDir.h"
#include "hxutil/DtException.h"
#include "hxutil/DtFilename.h"
#include "hxutil/DtList.h"
#include "hxutil/DtNet.h"
#include "hxutil/DtString.h"
#include "zorUtil/DtZorFilesystem.h"

TEST(DtString, doubleTextIsShortestAndReadsBack) {
    EXPECT_EQ(DtString(45.5), "45.5");
    EXPECT_EQ(DtString(0.1), "0.1");
    EXPECT_EQ(DtString(-96.0), "-96");
    EXPECT_EQ(DtString(1e300), "1e+300");
    for (double v : {0.1 + 0.2, 1.0 / 3.0, 6378137.0, -1e-310, 2.2250738585072014e-308}) {
        SCOPED_TRACE(v);
        bool ok = false;
        EXPECT_EQ(DtString(v).toDouble(&ok), v);
        EXPECT_TRUE(ok);
    }
}

TEST(DtString, conversionsRejectWhatIsNotWholeNumber) {
    struct Case {
        const char* text;
        bool intOk;
        int intValue;
    };
    const Case cases[] = {{"12", true, 12},          {" -7 ", true, -7}, {"+3", true, 3},
                          {"12abc", false, 0},       {"", false, 0},     {"-", false, 0},
                          {"99999999999", false, 0}, {"1.5", false, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        bool ok = !c.intOk;
        EXPECT_EQ(DtString(c.text).toInt(&ok), c.intValue);
        EXPECT_EQ(ok, c.intOk);
    }
    bool ok = true;
    EXPECT_EQ(DtString("-1").toUInt(&ok), 0u);
    EXPECT_FALSE(ok);
    EXPECT_EQ(DtString("1e400").toDouble(&ok), 0.0);
    EXPECT_FALSE(ok);
    EXPECT_EQ(DtString("1e39").toFloat(&ok), 0.0f);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(DtString(" Yes").toBoolean(&ok));
    EXPECT_TRUE(ok);
    EXPECT_FALSE(DtString("maybe").toBoolean(&ok));
    EXPECT_FALSE(ok);
}

TEST(DtString, cutsAndSearchesStayInBounds) {
    DtString path("a/b/c.flt");
    EXPECT_EQ(path.findLastChar('/'), 3);
    EXPECT_EQ(path.findChar('/', 2), 3);
    EXPECT_EQ(path.findChar('/', 100), -1);
    EXPECT_EQ(path.findChar('/', -1), -1);
    EXPECT_EQ(path[100], '\0');
    EXPECT_EQ(path[-1], '\0');
    EXPECT_EQ(path.section('/', 1, 2), "b/c.flt");
    EXPECT_EQ(path.section('/', 2), "c.flt");
    EXPECT_EQ(path.section('/', 5), "");

    DtString front(path);
    EXPECT_TRUE(front.snipFront('/', false));
    EXPECT_EQ(front, "b/c.flt");
    EXPECT_TRUE(front.snipFront('/', true));
    EXPECT_EQ(front, "/c.flt");
    DtString back(path);
    EXPECT_TRUE(back.snipBack('/', true));
    EXPECT_EQ(back, "a/b/");
    EXPECT_TRUE(back.snipBack('/', false));
    EXPECT_EQ(back, "a/b");
    EXPECT_FALSE(back.snipBack('#', true));
    EXPECT_EQ(back, "a/b");

    std::vector<DtString> tokens;
    EXPECT_EQ(DtString("::x::y:").tokenize(':', tokens), 2);
    ASSERT_EQ(tokens.size(), 2u);
    EXPECT_EQ(tokens[1], "y");
    EXPECT_EQ(DtString("  pad \t").chompFront().chompBack(), "pad");
    EXPECT_EQ(DtString("MiXed").caseCompare("mixED"), 0);
    EXPECT_LT(DtString("abc").caseCompare("abd"), 0);
}

TEST(DtFilename, extensionAndCutsFollowTheLastComponent) {
    DtFilename tile("/data/v1.2/tile_012.FLT");
    EXPECT_EQ(tile.extension(), "FLT");
    EXPECT_EQ(DtFilename("/data/v1.2/tile").extension(), "");
    EXPECT_EQ(DtFilename("/home/.profile").extension(), "");
    EXPECT_EQ(DtFilename::stripPath(tile), "tile_012.FLT");
    EXPECT_EQ(DtFilename(tile).stripFilename(), "/data/v1.2/");
    EXPECT_TRUE(tile.absolute());
    EXPECT_FALSE(DtFilename("data/x").absolute());
    EXPECT_EQ(DtFilename("/x").stripFilename(), "/");
    EXPECT_EQ(DtFilename("x").stripFilename(), "");
    EXPECT_EQ(DtFilename("..\\data\\t.shp").stripFilename(), "..\\data\\");
    EXPECT_EQ(DtFilename(tile).setExtension(".mft"), "/data/v1.2/tile_012.mft");
    EXPECT_EQ(DtFilename("dir/").append("/f"), "dir/f");
    EXPECT_EQ(DtFilename("f").prepend("dir"), "dir/f");
    EXPECT_TRUE(DtFilename::nullFilename().isEmpty());
}

TEST(DtZorFilesystem, baseNameAndExtensionGiveTheComponentBack) {
    for (const char* path : {"/data/terrain.v2/", "/data/terrain.v2", "dir/name.", "dir/.hidden",
                             "plain", "/a.b/c.D", "x/..", "ends.with.dots.."}) {
        SCOPED_TRACE(path);
        const std::string component = DtFilename::stripPath(DtFilename(path)).stdString();
        EXPECT_EQ(kelZor::DtZorFilesystem::baseName(path) +
                      kelZor::DtZorFilesystem::extensionCaseSensitive(path, true),
                  component);
    }
    EXPECT_EQ(kelZor::DtZorFilesystem::extensionCaseSensitive("a/B.TIF", false), ".tif");
    EXPECT_EQ(kelZor::DtZorFilesystem::extensionCaseSensitive("a/name.", true), ".");
}

TEST(DtFilename, fileQuestionsAndAlternatePaths) {
    TempDir dir;
    const std::string file = dir.write("here.flt", "12345");
    EXPECT_TRUE(DtFilename(file.c_str()).exists());
    EXPECT_EQ(DtFilename(file.c_str()).fileLength(), 5);
    EXPECT_EQ(DtFilename(dir.path().c_str()).fileLength(), -1);
    EXPECT_EQ(DtFilename(dir.file("missing").c_str()).fileLength(), -1);

    DtFilename moved("/nowhere/here.flt");
    const std::string search = "/also/not:" + dir.path();
    EXPECT_TRUE(moved.searchAlternatePath(search.c_str()));
    EXPECT_EQ(moved, file.c_str());
    DtFilename lost("/nowhere/other.flt");
    EXPECT_FALSE(lost.searchAlternatePath(search.c_str()));
    EXPECT_EQ(lost, "/nowhere/other.flt");
}

TEST(DtList, removalKeepsTheChainAndCopiesAreIndependent) {
    int a = 1, b = 2, c = 3;
    DtList list;
    list.add(&a);
    DtListItem* middle = list.add(&b);
    list.add(&c);
    DtList copy(list);
    EXPECT_TRUE(list.remove(middle));
    EXPECT_FALSE(list.remove(middle));
    std::vector<int> seen;
    for (DtListItem* item = list.first(); item; item = item->next()) {
        seen.push_back(*static_cast<int*>(item->data()));
    }
    EXPECT_EQ(seen, (std::vector<int>{1, 3}));
    EXPECT_EQ(copy.count(), 3);
    EXPECT_FALSE(copy.remove(list.first()));  // an item of another list
}

TEST(DtException, recordsWhereItWasThrownAndItsChain) {
    try {
        DtThrowInvalidInput("no such dataset");
        FAIL();
    } catch (const DtTemplatedException<-1>& e) {
        EXPECT_STREQ(e.message(), "DtInvalidInput: no such dataset");
        EXPECT_EQ(e.file(), "hxutil_test.cpp");
        EXPECT_NE(e.function().find("TestBody"), std::string::npos);
        EXPECT_EQ(e.initialException(), &e);
        DtException wrapped("outer", "f()", "x.cpp", 3, &e);
        EXPECT_STREQ(wrapped.initialException()->message(), "DtInvalidInput: no such dataset");
        EXPECT_STREQ(wrapped.where(), "x.cpp:3 f()");
    }
}
