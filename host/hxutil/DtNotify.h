// Process-wide talkativeness of the engine's libraries, and their warning stream.
//
// DtNotifyLevel: 0 is quiet; the terrain database loader and the vector library only
// write diagnostics above it. What a user must know whatever the level (a load that had
// to leave features out) still goes to DtWarn. Code that must keep the libraries quiet
// saves, zeroes and restores it on every path.
//
// DtWarn: where the libraries write warnings, one line each. It writes to std::cerr
// unless redirected (tests capture it with setTarget).
#pragma once

#include <ostream>
#include <streambuf>

extern int DtNotifyLevel;

class DtOutputStream : public std::ostream {
public:
    DtOutputStream();
    // Sends what follows to `target`; null restores std::cerr.
    void setTarget(std::ostream* target);

private:
    class Forwarder : public std::streambuf {
    public:
        std::ostream* target = nullptr;

    protected:
        int overflow(int c) override;
        std::streamsize xsputn(const char* s, std::streamsize n) override;
        int sync() override;
    };
    Forwarder forwarder_;
};

extern DtOutputStream DtWarn;
