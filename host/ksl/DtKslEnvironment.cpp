#include "ksl/DtKslEnvironment.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "hxutil/DtFilename.h"
#include "hxutil/DtNotify.h"

namespace {

struct KslError {
    int line;
    std::string message;
};

// What one evaluation has made, charged as it is made and never given back: a bound on
// what it can hold at once, whatever the text (a string doubled twelve times over, a list
// of ten million items).
class Budget {
public:
    // What an object costs: itself, its shared_ptr's control block, the allocator's due.
    static constexpr size_t objectBytes = sizeof(DtlObj) + 48;

    void charge(size_t bytes, int line) {
        spent_ += bytes;
        if (spent_ > DtKslEnvironment::maxEvaluationBytes) {
            throw KslError{line, "the evaluation takes more than " +
                                     std::to_string(DtKslEnvironment::maxEvaluationBytes >> 20) +
                                     " MB (the limit of one evaluation)"};
        }
    }
    static void checkString(size_t length, int line) {
        if (length > DtKslEnvironment::maxStringLength) {
            throw KslError{line, "a string longer than " +
                                     std::to_string(DtKslEnvironment::maxStringLength >> 20) +
                                     " MB (the limit of one string)"};
        }
    }
    static void checkList(size_t items, int line) {
        if (items > DtKslEnvironment::maxListLength) {
            throw KslError{line, "a list longer than " +
                                     std::to_string(DtKslEnvironment::maxListLength) +
                                     " items (the limit of one list)"};
        }
    }

private:
    size_t spent_ = 0;
};

// A form and the line it started on.
struct Form {
    DtlObjPtr object;
    int line;
};

bool isDelimiter(char c) {
    return c == '(' || c == ')' || c == '\'' || c == '"' || c == ';' ||
           std::isspace(static_cast<unsigned char>(c));
}

DtlObjPtr atom(const std::string& token) {
    const char* text = token.c_str();
    char* end = nullptr;
    errno = 0;
    const long long integer = std::strtoll(text, &end, 10);
    if (*end == '\0' && end != text && errno == 0 && integer >= INT_MIN && integer <= INT_MAX) {
        return DtlObj::fixnum(static_cast<int>(integer));
    }
    const bool looksNumeric = std::isdigit(static_cast<unsigned char>(text[0])) ||
                              ((text[0] == '-' || text[0] == '+' || text[0] == '.') &&
                               std::isdigit(static_cast<unsigned char>(text[1])));
    if (looksNumeric) {
        const double real = std::strtod(text, &end);
        if (*end == '\0')
            return DtlObj::flonum(real);
    }
    return DtlObj::symbol(token);
}

DtlObjPtr listOf(const std::vector<DtlObjPtr>& items, Budget& budget, int line) {
    budget.charge(items.size() * Budget::objectBytes, line);
    DtlObjPtr list = DtlObj::nil();
    for (auto it = items.rbegin(); it != items.rend(); ++it)
        list = DtlObj::cons(*it, list);
    return list;
}

// Reads the top-level forms of a text one at a time, without recursion, so a form is
// evaluated before the next is read, as a Lisp load does: a syntax error further on
// leaves the bindings of the forms before it in place.
class FormReader {
public:
    FormReader(const std::string& text, Budget& budget) : text_(text), budget_(budget) {}

    // False at the end of the text; throws KslError on a syntax error.
    bool next(Form& form) {
        struct Open {
            std::vector<DtlObjPtr> items;
            int quotes;  // quote marks in front of the list
            int line;
        };
        std::vector<Open> open;
        int quotes = 0;
        bool done = false;
        auto finish = [&](DtlObjPtr object) {
            for (; quotes > 0; --quotes)
                object = listOf({DtlObj::symbol("quote"), object}, budget_, line_);
            if (open.empty()) {
                form = {object, formLine_};
                done = true;
            } else {
                // A form is one longer than the list it makes: (list 1 2 ...) names its
                // operator too.
                Budget::checkList(open.back().items.size(), line_);
                budget_.charge(sizeof(DtlObjPtr), line_);
                open.back().items.push_back(object);
            }
        };
        auto startsForm = [&] {
            if (open.empty() && quotes == 0)
                formLine_ = line_;
        };
        while (!done && at_ < text_.size()) {
            const char c = text_[at_];
            if (c == '\n')
                ++line_;
            if (std::isspace(static_cast<unsigned char>(c))) {
                ++at_;
            } else if (c == ';') {
                while (at_ < text_.size() && text_[at_] != '\n')
                    ++at_;
            } else if (c == '\'') {
                startsForm();
                ++quotes;
                ++at_;
            } else if (c == '(') {
                if (open.size() >= static_cast<size_t>(DtKslEnvironment::maxNesting)) {
                    throw KslError{line_, "lists nested deeper than " +
                                              std::to_string(DtKslEnvironment::maxNesting)};
                }
                startsForm();
                open.push_back({{}, quotes, line_});
                quotes = 0;
                ++at_;
            } else if (c == ')') {
                if (open.empty())
                    throw KslError{line_, "unbalanced \")\""};
                if (quotes)
                    throw KslError{line_, "quote before \")\""};
                Open closed = std::move(open.back());
                open.pop_back();
                quotes = closed.quotes;
                ++at_;
                finish(listOf(closed.items, budget_, line_));
            } else if (c == '"') {
                startsForm();
                std::string value = readString();
                budget_.charge(Budget::objectBytes + value.size(), line_);
                finish(DtlObj::string(value));
            } else {
                startsForm();
                const size_t begin = at_;
                while (at_ < text_.size() && !isDelimiter(text_[at_]))
                    ++at_;
                budget_.charge(Budget::objectBytes + (at_ - begin), line_);
                finish(atom(text_.substr(begin, at_ - begin)));
            }
        }
        if (done)
            return true;
        if (!open.empty())
            throw KslError{open.back().line, "unterminated list"};
        if (quotes)
            throw KslError{line_, "quote at the end of the text"};
        return false;
    }

private:
    std::string readString() {
        const int start = line_;
        std::string value;
        for (++at_;; ++at_) {
            if (at_ >= text_.size())
                throw KslError{start, "unterminated string"};
            if (text_[at_] == '"')
                break;
            if (text_[at_] == '\n')
                ++line_;
            if (text_[at_] == '\\' && at_ + 1 < text_.size())
                ++at_;
            value += text_[at_];
            Budget::checkString(value.size(), start);
        }
        ++at_;
        return value;
    }

    const std::string& text_;
    Budget& budget_;
    size_t at_ = 0;
    int line_ = 1;
    int formLine_ = 1;
};

bool isTrue(const DtlObjPtr& value) {
    return !value.isNull() && value->kind() != DtlObj::Nil;
}

std::string describe(const DtlObjPtr& object) {
    if (object.isNull())
        return "nothing";
    switch (object->kind()) {
        case DtlObj::Symbol:
            return "symbol " + object->text();
        case DtlObj::String:
            return "a string";
        case DtlObj::Fixnum:
        case DtlObj::Flonum:
            return "a number";
        default:
            return "a list";
    }
}

}  // namespace

class DtKslEnvironment::Evaluator {
public:
    Evaluator(DtKslEnvironment& environment, const std::string& fileName, int loadDepth,
              Budget& budget)
        : environment_(environment), fileName_(fileName), loadDepth_(loadDepth), budget_(budget) {}

    DtlObjPtr run(const std::string& text) {
        DtlObjPtr value = DtlObj::nil();
        FormReader reader(text, budget_);
        for (Form form; reader.next(form);) {
            line_ = form.line;
            value = eval(form.object, 0);
        }
        return value;
    }

private:
    using Frame = DtlObj::Bindings;
    static constexpr int maxDepth = 256;

    [[noreturn]] void fail(const std::string& message) const { throw KslError{line_, message}; }

    DtlObjPtr* find(const std::string& name) {
        for (auto frame = frames_.rbegin(); frame != frames_.rend(); ++frame) {
            const auto found = frame->find(name);
            if (found != frame->end())
                return &found->second;
        }
        const auto found = environment_.globals_->find(name);
        return found == environment_.globals_->end() ? nullptr : &found->second;
    }

    std::vector<DtlObjPtr> arguments(const DtlObjPtr& form) {
        std::vector<DtlObjPtr> items;
        DtlObjPtr rest = DtcCdr(form);
        for (; !rest.isNull() && rest->kind() == DtlObj::Cons; rest = rest->cdr())
            items.push_back(rest->car());
        if (!DtcNull(rest))
            fail("a dotted form");
        return items;
    }

    std::vector<DtlObjPtr> evaluated(const std::vector<DtlObjPtr>& forms, int depth) {
        std::vector<DtlObjPtr> values;
        budget_.charge(forms.size() * sizeof(DtlObjPtr), line_);
        for (const DtlObjPtr& form : forms)
            values.push_back(eval(form, depth + 1));
        return values;
    }

    const std::string& symbolName(const DtlObjPtr& object, const char* form) {
        if (object.isNull() || object->kind() != DtlObj::Symbol)
            fail(std::string(form) + " needs a symbol");
        return object->text();
    }

    DtlObjPtr eval(const DtlObjPtr& form, int depth) {
        if (depth > maxDepth)
            fail("forms nested deeper than " + std::to_string(maxDepth));
        switch (form->kind()) {
            case DtlObj::Symbol: {
                if (form->text() == "nil")
                    return DtlObj::nil();
                if (form->text() == "t")
                    return form;
                if (DtlObjPtr* value = find(form->text()))
                    return *value;
                fail("unbound symbol " + form->text());
            }
            case DtlObj::Cons:
                return apply(form, depth);
            default:
                return form;
        }
    }

    DtlObjPtr apply(const DtlObjPtr& form, int depth) {
        const std::string& op = symbolName(form->car(), "a call");
        const std::vector<DtlObjPtr> args = arguments(form);
        auto count = [&](size_t low, size_t high) {
            if (args.size() < low || args.size() > high)
                fail("wrong number of arguments to " + op);
        };
        if (op == "quote") {
            count(1, 1);
            return args[0];
        }
        if (op == "setq" || op == "defvar" || op == "defparameter" || op == "define")
            return bind(op, args, depth);
        if (op == "progn") {
            DtlObjPtr value = DtlObj::nil();
            for (const DtlObjPtr& item : args)
                value = eval(item, depth + 1);
            return value;
        }
        if (op == "if") {
            count(2, 3);
            if (isTrue(eval(args[0], depth + 1)))
                return eval(args[1], depth + 1);
            return args.size() == 3 ? eval(args[2], depth + 1) : DtlObj::nil();
        }
        if (op == "let")
            return let(args, depth);
        if (op == "load") {
            count(1, 1);
            return load(eval(args[0], depth + 1));
        }
        const std::vector<DtlObjPtr> values = evaluated(args, depth);
        if (op == "list") {
            Budget::checkList(values.size(), line_);
            return listOf(values, budget_, line_);
        }
        if (op == "cons") {
            count(2, 2);
            budget_.charge(Budget::objectBytes, line_);
            return DtlObj::cons(values[0], values[1]);
        }
        if (op == "car" || op == "cdr") {
            count(1, 1);
            if (!DtcListp(values[0]))
                fail(op + " of " + describe(values[0]));
            return op == "car" ? DtcCar(values[0]) : DtcCdr(values[0]);
        }
        if (op == "strcat" || op == "string-append") {
            size_t length = 0;
            for (const DtlObjPtr& value : values) {
                if (!DtcStringp(value))
                    fail(op + " of " + describe(value));
                length += value->text().size();
            }
            // Measured before it is made: a string doubled over and over stops here.
            Budget::checkString(length, line_);
            budget_.charge(Budget::objectBytes + length, line_);
            std::string text;
            text.reserve(length);
            for (const DtlObjPtr& value : values)
                text += value->text();
            return DtlObj::string(text);
        }
        if (op == "+" || op == "-" || op == "*" || op == "/") {
            budget_.charge(Budget::objectBytes, line_);
            return arithmetic(op, values);
        }
        fail("unknown function " + op);
    }

    DtlObjPtr bind(const std::string& op, const std::vector<DtlObjPtr>& args, int depth) {
        if (args.empty() || (op == "setq" ? args.size() % 2 != 0 : args.size() > 2)) {
            fail("wrong number of arguments to " + op);
        }
        DtlObjPtr value = DtlObj::nil();
        for (size_t i = 0; i < args.size(); i += 2) {
            const std::string& name = symbolName(args[i], op.c_str());
            if (op == "defvar" && environment_.globals_->count(name))
                continue;  // keeps a binding
            value = i + 1 < args.size() ? eval(args[i + 1], depth + 1) : DtlObj::nil();
            DtlObjPtr* existing = op == "setq" ? find(name) : nullptr;
            if (existing) {
                *existing = value;
            } else {
                (*environment_.globals_)[name] = value;
            }
        }
        return value;
    }

    DtlObjPtr let(const std::vector<DtlObjPtr>& args, int depth) {
        if (args.empty() || !DtcListp(args[0]))
            fail("let needs a list of bindings");
        Frame frame;
        for (DtlObjPtr rest = args[0]; rest->kind() == DtlObj::Cons; rest = rest->cdr()) {
            const DtlObjPtr binding = rest->car();
            if (binding->kind() == DtlObj::Symbol) {
                frame[binding->text()] = DtlObj::nil();
                continue;
            }
            const std::string& name = symbolName(DtcCar(binding), "let");
            frame[name] = eval(DtcCar(DtcCdr(binding)), depth + 1);
        }
        frames_.push_back(std::move(frame));
        DtlObjPtr value = DtlObj::nil();
        try {
            for (size_t i = 1; i < args.size(); ++i)
                value = eval(args[i], depth + 1);
        } catch (...) {
            frames_.pop_back();
            throw;
        }
        frames_.pop_back();
        return value;
    }

    DtlObjPtr arithmetic(const std::string& op, const std::vector<DtlObjPtr>& values) {
        bool real = false;
        for (const DtlObjPtr& value : values) {
            if (value->kind() != DtlObj::Fixnum && value->kind() != DtlObj::Flonum)
                fail(op + " of " + describe(value));
            real = real || value->kind() == DtlObj::Flonum;
        }
        if (values.empty())
            return DtlObj::fixnum(op == "*" ? 1 : 0);
        if (real) {
            double result = values[0]->flonum();
            if (values.size() == 1 && op == "-")
                return DtlObj::flonum(-result);
            for (size_t i = 1; i < values.size(); ++i) {
                const double v = values[i]->flonum();
                result = op == "+"   ? result + v
                         : op == "-" ? result - v
                         : op == "*" ? result * v
                                     : result / v;
            }
            return DtlObj::flonum(result);
        }
        long long result = values[0]->fixnum();
        if (values.size() == 1 && op == "-")
            result = -result;
        for (size_t i = 1; i < values.size(); ++i) {
            const long long v = values[i]->fixnum();
            if (op == "/" && v == 0)
                fail("division by zero");
            result = op == "+"   ? result + v
                     : op == "-" ? result - v
                     : op == "*" ? result * v
                                 : result / v;
            if (result < INT_MIN || result > INT_MAX)
                fail("integer overflow in " + op);
        }
        return DtlObj::fixnum(static_cast<int>(result));
    }

    DtlObjPtr load(const DtlObjPtr& name) {
        if (!DtcStringp(name))
            fail("load needs a file name");
        if (loadDepth_ + 1 >= DtKslEnvironment::maxLoadDepth)
            fail("files loaded deeper than 16");
        DtFilename path(name->text());
        if (!path.isEmpty() && path[0] != '/') {
            DtFilename directory(fileName_);
            directory.stripFilename();
            if (!directory.isEmpty())
                path.prepend(directory.c_str());
        }
        std::string text;
        std::string problem;
        if (!readFile(path.stdString(), text, problem))
            fail("cannot load " + path.stdString() + ": " + problem);
        Evaluator nested(environment_, path.stdString(), loadDepth_ + 1, budget_);
        try {
            return nested.run(text);
        } catch (const KslError& error) {
            // The error belongs to the loaded file; report it there and stop this one too.
            throw KslError{line_, "in " + path.stdString() + ":" + std::to_string(error.line) +
                                      ": " + error.message};
        }
    }

public:
    static bool readFile(const std::string& path, std::string& text, std::string& problem) {
        const long long size = DtFilename(path).fileLength();
        if (size < 0) {
            problem = "no such readable file";
            return false;
        }
        if (size > DtKslEnvironment::maxFileSize) {
            problem = "larger than " + std::to_string(DtKslEnvironment::maxFileSize >> 20) + " MB";
            return false;
        }
        std::ifstream in(path, std::ios::binary);
        std::ostringstream contents;
        contents << in.rdbuf();
        text = contents.str();
        return static_cast<bool>(in) || in.eof();
    }

private:
    DtKslEnvironment& environment_;
    std::string fileName_;
    int loadDepth_;
    Budget& budget_;
    int line_ = 1;
    std::vector<Frame> frames_;
};

DtKslEnvironment::DtKslEnvironment()
    : globals_(std::make_shared<DtlObj::Bindings>()), environment_(DtlObj::environment(globals_)) {}

DtKslEnvironment::~DtKslEnvironment() = default;

DtlObjPtr DtKslEnvironment::loadLispFile(char* fileName, int reportErrors) {
    const std::string name = fileName ? fileName : "";
    std::string text;
    std::string problem;
    if (!Evaluator::readFile(name, text, problem)) {
        lastError_ = name + ": cannot load: " + problem;
        if (reportErrors)
            DtWarn << lastError_ << "\n";
        return DtlObjPtr();
    }
    return evaluateText(text, name, reportErrors);
}

DtlObjPtr DtKslEnvironment::evaluateText(const std::string& text, const std::string& fileName,
                                         int reportErrors) {
    lastError_.clear();
    try {
        Budget budget;
        return Evaluator(*this, fileName, 0, budget).run(text);
    } catch (const KslError& error) {
        lastError_ = fileName + ":" + std::to_string(error.line) + ": " + error.message;
        if (reportErrors)
            DtWarn << lastError_ << "\n";
        return DtlObjPtr();
    }
}

DtlObjPtr DtKslEnvironment::symbolValue(const DtString& name) {
    const auto found = globals_->find(name.stdString());
    return found == globals_->end() ? DtlObjPtr() : found->second;
}

const DtlObjPtr& DtKslEnvironment::globalEnvironment() {
    return environment_;
}
