#include "ksl/DtlObj.h"

#include <climits>
#include <cmath>

DtlObjPtr DtlObj::nil() {
    static const DtlObjPtr empty(std::shared_ptr<DtlObj>(new DtlObj(Nil)));
    return empty;
}

DtlObjPtr DtlObj::cons(const DtlObjPtr& car, const DtlObjPtr& cdr) {
    std::shared_ptr<DtlObj> object(new DtlObj(Cons));
    object->car_ = car;
    object->cdr_ = cdr;
    return DtlObjPtr(object);
}

DtlObjPtr DtlObj::fixnum(int value) {
    std::shared_ptr<DtlObj> object(new DtlObj(Fixnum));
    object->number_ = value;
    return DtlObjPtr(object);
}

DtlObjPtr DtlObj::flonum(double value) {
    std::shared_ptr<DtlObj> object(new DtlObj(Flonum));
    object->real_ = value;
    return DtlObjPtr(object);
}

DtlObjPtr DtlObj::string(const std::string& value) {
    std::shared_ptr<DtlObj> object(new DtlObj(String));
    object->text_ = value;
    return DtlObjPtr(object);
}

DtlObjPtr DtlObj::symbol(const std::string& name) {
    std::shared_ptr<DtlObj> object(new DtlObj(Symbol));
    object->text_ = name;
    return DtlObjPtr(object);
}

DtlObjPtr DtlObj::environment(std::shared_ptr<Bindings> bindings) {
    std::shared_ptr<DtlObj> object(new DtlObj(Environment));
    object->bindings_ = std::move(bindings);
    return DtlObjPtr(object);
}

DtlObj::~DtlObj() {
    // Unlink the tail while this object is its only owner, one cell at a time.
    DtlObjPtr next = cdr_;
    cdr_ = DtlObjPtr();
    while (!next.isNull() && next.useCount() == 1 && next->kind_ == Cons) {
        DtlObjPtr after = next->cdr_;
        next->cdr_ = DtlObjPtr();
        next = after;
    }
}

int DtlObj::fixnum() const {
    if (kind_ == Fixnum)
        return static_cast<int>(number_);
    if (kind_ == Flonum && std::isfinite(real_) && real_ > INT_MIN && real_ < INT_MAX) {
        return static_cast<int>(real_);
    }
    return 0;
}

double DtlObj::flonum() const {
    if (kind_ == Flonum)
        return real_;
    if (kind_ == Fixnum)
        return static_cast<double>(number_);
    return 0.0;
}

DtlObjPtr DtcCar(const DtlObjPtr& list) {
    return !list.isNull() && list->kind() == DtlObj::Cons ? list->car() : DtlObj::nil();
}

DtlObjPtr DtcCdr(const DtlObjPtr& list) {
    return !list.isNull() && list->kind() == DtlObj::Cons ? list->cdr() : DtlObj::nil();
}

int DtcListp(const DtlObjPtr& object) {
    return !object.isNull() && (object->kind() == DtlObj::Cons || object->kind() == DtlObj::Nil);
}

int DtcStringp(const DtlObjPtr& object) {
    return !object.isNull() && object->kind() == DtlObj::String;
}
int DtcNull(const DtlObjPtr& object) {
    return !object.isNull() && object->kind() == DtlObj::Nil;
}

DtlObjPtr DtcIntern(char* name, const DtlObjPtr&) {
    return DtlObj::symbol(name ? name : "");
}

int DtcBoundp(const DtlObjPtr& symbol, const DtlObjPtr& environment) {
    return !DtcSymeval(symbol, environment).isNull();
}

DtlObjPtr DtcSymeval(const DtlObjPtr& symbol, const DtlObjPtr& environment) {
    if (symbol.isNull() || environment.isNull() || !environment->bindings())
        return DtlObjPtr();
    const auto found = environment->bindings()->find(symbol->text());
    return found == environment->bindings()->end() ? DtlObjPtr() : found->second;
}
