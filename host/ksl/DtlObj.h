// Objects of the KSL language and the list operations terrain code walks them with.
//
//   DtlObjPtr value = environment.symbolValue("databaseName");
//   for (DtlObjPtr rest = value; DtcListp(rest) && !DtcNull(rest); rest = DtcCdr(rest))
//       if (DtcStringp(DtcCar(rest))) use(DtcCar(rest)->string());
//
// A DtlObjPtr may be null (no object). The empty list is an object of its own.
#pragma once

#include <map>
#include <memory>
#include <string>

class DtlObj;

class DtlObjPtr {
public:
    DtlObjPtr() = default;
    explicit DtlObjPtr(std::shared_ptr<DtlObj> object) : object_(std::move(object)) {}
    int isNull() const { return object_ == nullptr; }
    DtlObj* operator->() const { return object_.get(); }
    DtlObj* get() const { return object_.get(); }
    bool operator==(const DtlObjPtr& other) const { return object_ == other.object_; }
    long useCount() const { return object_.use_count(); }

private:
    std::shared_ptr<DtlObj> object_;
};

class DtlObj {
public:
    enum Kind { Nil, Cons, Fixnum, Flonum, String, Symbol, Environment };
    using Bindings = std::map<std::string, DtlObjPtr>;

    static DtlObjPtr nil();
    static DtlObjPtr cons(const DtlObjPtr& car, const DtlObjPtr& cdr);
    static DtlObjPtr fixnum(int value);
    static DtlObjPtr flonum(double value);
    static DtlObjPtr string(const std::string& value);
    static DtlObjPtr symbol(const std::string& name);
    static DtlObjPtr environment(std::shared_ptr<Bindings> bindings);

    // Long lists are released in a loop, not by a recursion as deep as the list.
    ~DtlObj();

    Kind kind() const { return kind_; }
    // The value as text (a symbol's name; "" for other kinds).
    char* string() { return &text_[0]; }
    // An integer, a float truncated toward zero within the int range, else 0.
    int fixnum() const;
    // A float, an integer widened, else 0.
    double flonum() const;
    const std::string& text() const { return text_; }
    const DtlObjPtr& car() const { return car_; }
    const DtlObjPtr& cdr() const { return cdr_; }
    const std::shared_ptr<Bindings>& bindings() const { return bindings_; }

private:
    explicit DtlObj(Kind kind) : kind_(kind) {}
    Kind kind_;
    std::string text_;
    long long number_ = 0;
    double real_ = 0.0;
    DtlObjPtr car_;
    DtlObjPtr cdr_;
    std::shared_ptr<Bindings> bindings_;
};

DtlObjPtr DtcCar(const DtlObjPtr& list);
DtlObjPtr DtcCdr(const DtlObjPtr& list);
int DtcListp(const DtlObjPtr& object);
int DtcStringp(const DtlObjPtr& object);
int DtcNull(const DtlObjPtr& object);
// The symbol of that name, in the environment `DtKslEnvironment::globalEnvironment` gives.
DtlObjPtr DtcIntern(char* name, const DtlObjPtr& environment);
int DtcBoundp(const DtlObjPtr& symbol, const DtlObjPtr& environment);
DtlObjPtr DtcSymeval(const DtlObjPtr& symbol, const DtlObjPtr& environment);
