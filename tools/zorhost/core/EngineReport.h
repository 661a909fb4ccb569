// What the engine said while a command ran: its log (the plug-in's two-line warnings and
// the errors it was told) and the notes its libraries wrote to DtWarn. zorhost captures
// both, so that it can say each thing once, in one line, naming the file.
//
//   EngineReport report(de);
//   adder->addFeatures(layer);
//   for (const std::string& file : report.filesNotLoaded())
//       err << "zorhost: " << file << ": " << report.whyNotLoaded(file) << "\n";
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace kelZor {
class DtDe;
}

// The lines of text a function wrote as zorhost says things on stderr, each without the
// "zorhost: " in front: what a front end says its own way.
std::vector<std::string> saidLines(const std::string& text);

class EngineReport {
public:
    explicit EngineReport(kelZor::DtDe& de);
    ~EngineReport();  // the log and DtWarn write where they did before
    EngineReport(const EngineReport&) = delete;
    EngineReport& operator=(const EngineReport&) = delete;

    // The libraries' notes (what a load left out), each once, in order.
    std::vector<std::string> notes() const;
    // The files the engine was told could not be loaded, each once, in order.
    std::vector<std::string> filesNotLoaded() const;
    // Why the engine could not load `file`, as the plug-in's warning for it gives the
    // loader's reason; a file that loaded without vector data has none of its own.
    std::string whyNotLoaded(const std::string& file) const;
    // Whether the engine was told any error since this report began.
    bool anyError() const;

    // Writes the notes and, for each file not loaded, its reason, one line each.
    void printProblems(std::ostream& err) const;
    // Writes each error the engine was told since this report began, naming `file`.
    void printErrors(std::ostream& err, const std::string& file) const;

private:
    kelZor::DtDe& de_;
    size_t firstError_;
    std::ostringstream log_;
    std::ostringstream warnings_;
};
