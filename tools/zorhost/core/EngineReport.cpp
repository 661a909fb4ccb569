#include "EngineReport.h"

#include <algorithm>

#include "hxutil/DtNotify.h"
#include "zorCore/DtDe.h"

namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty())
            lines.push_back(line);
    }
    return lines;
}

void addOnce(std::vector<std::string>& list, const std::string& item) {
    if (std::find(list.begin(), list.end(), item) == list.end())
        list.push_back(item);
}

}  // namespace

EngineReport::EngineReport(kelZor::DtDe& de) : de_(de), firstError_(de.reportedErrors().size()) {
    de_.log().setTarget(&log_);
    DtWarn.setTarget(&warnings_);
}

std::vector<std::string> saidLines(const std::string& text) {
    const std::string prefix = "zorhost: ";
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line.rfind(prefix, 0) == 0 ? line.substr(prefix.size()) : line);
    return lines;
}

EngineReport::~EngineReport() {
    de_.log().setTarget(nullptr);
    DtWarn.setTarget(nullptr);
}

std::vector<std::string> EngineReport::notes() const {
    DtWarn.flush();
    std::vector<std::string> notes;
    for (const std::string& line : linesOf(warnings_.str()))
        addOnce(notes, line);
    return notes;
}

std::vector<std::string> EngineReport::filesNotLoaded() const {
    std::vector<std::string> files;
    const auto& errors = de_.reportedErrors();
    for (size_t i = firstError_; i < errors.size(); ++i) {
        const kelZor::DtDeError& error = errors[i].error;
        if (error.code() == kelZor::DtDeError::FileNotLoaded && !error.arguments().empty())
            addOnce(files, error.arguments().front());
    }
    return files;
}

std::string EngineReport::whyNotLoaded(const std::string& file) const {
    // The plug-in's warning ends with the loader's text, which begins with the file name.
    const std::string named = file + ": ";
    for (const std::string& line : linesOf(log_.str())) {
        const size_t at = line.find(named);
        if (at != std::string::npos && line.rfind("<Warning:", 0) != 0)
            return line.substr(at + named.size());
    }
    return "it holds no vector features (an elevation source or an image?)";
}

bool EngineReport::anyError() const {
    return de_.reportedErrors().size() > firstError_;
}

void EngineReport::printProblems(std::ostream& err) const {
    for (const std::string& note : notes())
        err << "zorhost: " << note << "\n";
    for (const std::string& file : filesNotLoaded())
        err << "zorhost: " << file << ": " << whyNotLoaded(file) << "\n";
}

void EngineReport::printErrors(std::ostream& err, const std::string& file) const {
    const auto& errors = de_.reportedErrors();
    for (size_t i = firstError_; i < errors.size(); ++i) {
        err << "zorhost: " << file << ": engine error " << static_cast<int>(errors[i].error.code())
            << ": " << errors[i].error.message() << "\n";
    }
}
