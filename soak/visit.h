// visit.h: one run of a real program inside morp, used as a person uses it, and checked after each
// action. What is not as it should be throws.
#pragma once

#include <sys/types.h>

#include <deque>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "harness/session.h"
#include "keys.h"

namespace soak {

struct Program {
    const char *name;
    const char *command;  // for the shell
    const char *prompt;
    // A line in front of and behind its text, and what is round the text in the answer.
    const char *before, *after, *answer_before, *answer_after;
    const char *quit;  // the line that ends it, or the end-of-input key
    unsigned traits;
};

// What lasts for the whole soak.
struct State {
    explicit State(unsigned long long start);
    ~State();
    void note(const std::string &what);

    unsigned long long seed;
    Random random;
    std::string dir;                     // history files
    std::map<std::string, Lines> typed;  // for each history file, what has to be in it
    std::deque<std::string> actions;     // the last ones
    long steps = 0, lines = 0, visits = 0, kills = 0;
    long rss = 0;  // KiB, the largest since it was last set to 0
    std::size_t descriptors = 0;
};

long resident(pid_t pid);  // KiB
std::size_t descriptors(pid_t pid);
// Commands in a history file. Throws when it is damaged.
Lines history_lines(const std::string &file);
void check_lines(const std::string &what, const Lines &expected, const Lines &seen);
// What is recorded of a line: all but white space at its end.
std::string recorded(std::string line);
// A program that shows each line it gets in angle brackets and puts it into the file "got".
extern const char *const kRecorder;

void visit(State &state);

}  // namespace soak
