// DtDebugLog: the engine's log. out(level) gives a stream for one level; what is above
// the log's threshold goes nowhere.
//
//   de.log().out(DtDebugLog::Warning) << "<Warning:" << signature << ">\n" << text << "\n";
#pragma once

#include <ostream>
#include <streambuf>

namespace kelZor {

class DtDebugLog {
public:
    enum PrintLevel { Error = 0, Warning = 1, Info = 2, Debug = 3 };

    DtDebugLog();
    std::ostream& out(PrintLevel level);
    // Messages up to this level are written (Warning by default).
    void setThreshold(PrintLevel level) { threshold_ = level; }
    // Where written messages go; null means std::cerr.
    void setTarget(std::ostream* target) { target_ = target; }

private:
    class NullBuffer : public std::streambuf {
    protected:
        int overflow(int c) override { return traits_type::not_eof(c); }
    };
    PrintLevel threshold_ = Warning;
    std::ostream* target_ = nullptr;
    NullBuffer nullBuffer_;
    std::ostream nullStream_;
};

}  // namespace kelZor
