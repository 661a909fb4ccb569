#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "TempDir.h"
#include "hxutil/DtNotify.h"
#include "ksl/DtKslEnvironment.h"

namespace {

// Captures DtWarn for one test.
struct WarnCapture {
    std::ostringstream text;
    WarnCapture() { DtWarn.setTarget(&text); }
    ~WarnCapture() { DtWarn.setTarget(nullptr); }
};

std::string stringOf(DtKslEnvironment& environment, const char* symbol) {
    const DtlObjPtr value = environment.symbolValue(symbol);
    return DtcStringp(value) ? value->text() : "(not a string)";
}

}  // namespace

TEST(Ksl, readsAndEvaluatesTheLanguage) {
    DtKslEnvironment environment;
    environment.evaluateText(
        "; a terrain description\n"
        "(setq databaseType \"UTM zone 32\")\n"
        "(defvar startAltitude 1500.5)  ; metres\n"
        "(defvar startAltitude 1.0)     ; defvar keeps the first\n"
        "(defparameter level (+ 1 2 (* 3 4)))\n"
        "(define half (/ 7 2.0))\n"
        "(setq quoted 'sym list2 (quote (a \"b\" 3)))\n"
        "(setq path (strcat \"/data\" \"/\" (string-append \"tiles\")))\n"
        "(setq escaped \"say \\\"hi\\\" \\\\ there\")\n"
        "(setq groups (list (cons \"/a;/b\" '(\"p1.flt\" \"p2.flt\"))))\n"
        "(setq chosen (if (car '()) \"then\" \"else\"))\n"
        "(setq scoped (let ((x 5) (y 6) z) (progn (setq x (- x)) (* x y))))\n"
        "(setq first (car (cdr '(1 2 3))))\n",
        "test.ksl", 1);
    EXPECT_EQ(environment.lastError(), "");
    EXPECT_EQ(stringOf(environment, "databaseType"), "UTM zone 32");
    EXPECT_EQ(environment.symbolValue("startAltitude")->flonum(), 1500.5);
    EXPECT_EQ(environment.symbolValue("level")->fixnum(), 15);
    EXPECT_EQ(environment.symbolValue("half")->flonum(), 3.5);
    EXPECT_EQ(environment.symbolValue("quoted")->text(), "sym");
    EXPECT_EQ(stringOf(environment, "path"), "/data/tiles");
    EXPECT_EQ(stringOf(environment, "escaped"), "say \"hi\" \\ there");
    EXPECT_EQ(stringOf(environment, "chosen"), "else");
    EXPECT_EQ(environment.symbolValue("scoped")->fixnum(), -30);
    EXPECT_EQ(environment.symbolValue("x").isNull(), 1);  // let's bindings are gone
    EXPECT_EQ(environment.symbolValue("first")->fixnum(), 2);

    // The list operations walk what the file bound.
    const DtlObjPtr group = DtcCar(environment.symbolValue("groups"));
    EXPECT_TRUE(DtcListp(group));
    EXPECT_EQ(std::string(DtcCar(group)->string()), "/a;/b");
    EXPECT_EQ(std::string(DtcCar(DtcCdr(DtcCdr(group)))->string()), "p2.flt");
    EXPECT_TRUE(DtcNull(DtcCdr(DtcCdr(DtcCdr(group)))));
    char name[] = "level";
    const DtlObjPtr symbol = DtcIntern(name, environment.globalEnvironment());
    EXPECT_TRUE(DtcBoundp(symbol, environment.globalEnvironment()));
    EXPECT_EQ(DtcSymeval(symbol, environment.globalEnvironment())->fixnum(), 15);
}

TEST(Ksl, anErrorStopsTheFileWithOneLineAndKeepsWhatWasBound) {
    WarnCapture warn;
    DtKslEnvironment environment;
    environment.evaluateText("(setq a 1)\n(setq b\n  (car \"text\"))\n(setq c 3)\n", "broken.ksl",
                             1);
    EXPECT_EQ(warn.text.str(), "broken.ksl:2: car of a string\n");
    EXPECT_EQ(environment.symbolValue("a")->fixnum(), 1);
    EXPECT_TRUE(environment.symbolValue("c").isNull());

    // Read one form at a time: a syntax error at the end keeps every binding before it.
    WarnCapture late;
    DtKslEnvironment loading;
    loading.evaluateText("(setq a 1)\n(setq b \"two\")\n(setq c '(1 2", "late.ksl", 1);
    EXPECT_EQ(late.text.str(), "late.ksl:3: unterminated list\n");
    EXPECT_EQ(loading.symbolValue("a")->fixnum(), 1);
    EXPECT_STREQ(loading.symbolValue("b")->string(), "two");
    EXPECT_TRUE(loading.symbolValue("c").isNull());

    const std::pair<std::string, std::string> broken[] = {
        {std::string(100000, '('), "lists nested deeper than 1000"},
        {"(setq s \"no end", "unterminated string"},
        {"(setq l '(1 2", "unterminated list"},
        {")", "unbalanced"},
        {"(undefined-function 1)", "unknown function undefined-function"},
        {"(setq x y)", "unbound symbol y"},
        {"(/ 1 0)", "division by zero"},
        {"(* 2147483647 2)", "integer overflow"},
        {"(setq)", "wrong number of arguments"},
        {"(1 2)", "a call needs a symbol"},
        {"(load \"missing.ksl\")", "cannot load"},
        {[] {
             std::string calls;
             for (int i = 0; i < 300; ++i)
                 calls += "(list ";
             return calls + std::string(300, ')');
         }(),
         "forms nested deeper than 256"},
    };
    for (const auto& [text, message] : broken) {
        SCOPED_TRACE(message);
        DtKslEnvironment fresh;
        EXPECT_TRUE(fresh.evaluateText(text, "x.ksl", 0).isNull());
        EXPECT_NE(fresh.lastError().find(message), std::string::npos) << fresh.lastError();
    }
}

TEST(Ksl, loadsFilesRelativeToTheCurrentOne) {
    TempDir dir;
    std::filesystem::create_directories(dir.file("shared"));
    dir.write("shared/paths.ksl", "(setq tileRoot \"/data/tiles\") (load \"more.ksl\")");
    dir.write("shared/more.ksl", "(setq extra 7)");
    const std::string main =
        dir.write("terrain.ksl", "(load \"shared/paths.ksl\")\n(setq done t)\n");
    dir.write("loop.ksl", "(load \"loop.ksl\")");
    DtKslEnvironment environment;
    std::string name = main;
    environment.loadLispFile(&name[0], 1);
    EXPECT_EQ(environment.lastError(), "");
    EXPECT_EQ(stringOf(environment, "tileRoot"), "/data/tiles");
    EXPECT_EQ(environment.symbolValue("extra")->fixnum(), 7);
    EXPECT_FALSE(environment.symbolValue("done").isNull());

    std::string loop = dir.file("loop.ksl");
    environment.loadLispFile(&loop[0], 0);
    EXPECT_NE(environment.lastError().find("files loaded deeper than 16"), std::string::npos);
}

TEST(Ksl, longListsAreBuiltAndReleasedWithoutDeepRecursion) {
    // As long as a list may be: a recursion that deep would overflow the stack.
    const int items = static_cast<int>(DtKslEnvironment::maxListLength);
    std::string text = "(setq big '(";
    for (int i = 0; i < items; ++i)
        text += "1 ";
    text += "))";
    DtKslEnvironment environment;
    environment.evaluateText(text, "big.ksl", 1);
    EXPECT_EQ(environment.lastError(), "");
    int length = 0;
    for (DtlObjPtr rest = environment.symbolValue("big"); !DtcNull(rest); rest = DtcCdr(rest))
        ++length;
    EXPECT_EQ(length, items);
}
