#include "hxutil/DtNotify.h"

#include <iostream>

int DtNotifyLevel = 1;

DtOutputStream DtWarn;

DtOutputStream::DtOutputStream() : std::ostream(nullptr) {
    rdbuf(&forwarder_);
}

void DtOutputStream::setTarget(std::ostream* target) {
    flush();
    forwarder_.target = target;
}

int DtOutputStream::Forwarder::overflow(int c) {
    if (c == traits_type::eof())
        return traits_type::not_eof(c);
    (target ? *target : std::cerr).put(static_cast<char>(c));
    return c;
}

std::streamsize DtOutputStream::Forwarder::xsputn(const char* s, std::streamsize n) {
    (target ? *target : std::cerr).write(s, n);
    return n;
}

int DtOutputStream::Forwarder::sync() {
    (target ? *target : std::cerr).flush();
    return 0;
}
