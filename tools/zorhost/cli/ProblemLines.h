// Says a core answer's problems on stderr as they come, each once: the command line
// prints what a step added since it last printed.
//
//   ProblemLines say(answer.problems, err);
//   run.prepare();
//   say();
#pragma once

#include <ostream>
#include <string>
#include <vector>

class ProblemLines {
public:
    ProblemLines(const std::vector<std::string>& lines, std::ostream& err)
        : lines_(lines), err_(err) {}
    void operator()() {
        for (; said_ < lines_.size(); ++said_)
            err_ << "zorhost: " << lines_[said_] << "\n";
    }

private:
    const std::vector<std::string>& lines_;
    std::ostream& err_;
    size_t said_ = 0;
};
