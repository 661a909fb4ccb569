// DtKslEnvironment: evaluates KSL terrain descriptions, a small Lisp, and answers the
// values they bind.
//
//   DtKslEnvironment environment;
//   environment.loadLispFile(const_cast<char*>("terrain.ksl"), 1);
//   DtlObjPtr type = environment.symbolValue("databaseType");  // null when unbound
//
// The language: integers, floats, strings (with \" and \\), symbols, lists, 'x and
// (quote x), ";" comments; setq, defvar, defparameter, define, quote, list, cons, car,
// cdr, progn, if, let, strcat and string-append, + - * / on integers and floats, and
// load of another file relative to the current one. A file with an error stops there
// with one line on DtWarn naming the file, the line and what is wrong; what was bound
// before stays bound. Nesting is capped, so no input can exhaust the stack; and one
// evaluation (a file with all it loads) is bounded: a string, a list and the memory of
// all the objects it makes each have a cap, past which it stops with the error line.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hxutil/DtString.h"
#include "ksl/DtlObj.h"

class DtKslEnvironment {
public:
    static constexpr int maxNesting = 1000;  // of lists in a text
    static constexpr int maxLoadDepth = 16;  // of files loading files
    static constexpr long long maxFileSize = 64ll << 20;
    static constexpr size_t maxStringLength = 16u << 20;        // bytes of one string
    static constexpr size_t maxListLength = 1u << 18;           // items of one list
    static constexpr size_t maxEvaluationBytes = 256ull << 20;  // objects made, in all

    DtKslEnvironment();
    virtual ~DtKslEnvironment();
    DtKslEnvironment(const DtKslEnvironment&) = delete;
    DtKslEnvironment& operator=(const DtKslEnvironment&) = delete;

    // Reads and evaluates a file; the value of its last form, or null after an error.
    // `reportErrors` non-zero writes the error line to DtWarn.
    DtlObjPtr loadLispFile(char* fileName, int reportErrors);
    // Evaluates text as if it were a file of that name.
    DtlObjPtr evaluateText(const std::string& text, const std::string& fileName, int reportErrors);

    virtual DtlObjPtr symbolValue(const DtString& name);
    virtual const DtlObjPtr& globalEnvironment();

    // The last error line, empty when the last load had none.
    const std::string& lastError() const { return lastError_; }

private:
    class Evaluator;
    std::shared_ptr<DtlObj::Bindings> globals_;
    DtlObjPtr environment_;
    std::string lastError_;
};
