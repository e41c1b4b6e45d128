// soak: uses morp for as long as it is told to, with random but realistic keys, and stops at the
// first thing that is not as it should be. script/soak builds and runs it.
//
// usage: soak [--minutes N] [--lines N] [--valgrind] [--seed N]
//
// --minutes: real programs. --lines: as many lines without pause, memory and descriptors watched.
// --valgrind: a few lines under memcheck, leaks and descriptors judged at the end.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include "visit.h"

using Clock = std::chrono::steady_clock;

namespace soak {
namespace {

void figures(const State &state, long minute) {
    std::printf("%3ld min  %ld lines, %ld programs, %ld kills, %ld KiB, %zu descriptors\n", minute,
                state.lines, state.visits, state.kills, state.rss, state.descriptors);
    (void)std::fflush(stdout);
}

void run_minutes(State &state, long minutes) {
    const auto start = Clock::now();
    for (long minute = 0; minute < minutes;) {
        visit(state);
        if (Clock::now() < start + std::chrono::minutes(minute + 1)) continue;
        figures(state, ++minute);
        state.rss = 0;
    }
}

harness::Options recorder(const State &state, const std::string &style) {
    harness::Options options;
    options.style = style;
    options.program = {"sh", "-c", kRecorder};
    options.env["Q_VXHISTFILE"] = state.dir + "/" + style;
    return options;
}

// Types `count` lines, 20 in one go, and calls `each` every 1000 lines.
template <typename Each>
Lines type_lines(State &state, Session &s, bool vi, long count, Each each) {
    Lines typed;
    while (static_cast<long>(typed.size()) < count) {
        std::string keys, line;
        const std::size_t mark = s.mark();
        for (int n = 0; n < 20; ++n) {
            line = std::to_string(typed.size()) + " " + letters(state.random, 30);
            keys += keys_for(state.random, line, vi, typed).bytes + "\r";
            typed.push_back(line);
        }
        s.type(keys);
        s.wait_output("<" + line + ">", mark);
        if (typed.size() % 1000 == 0) each(typed.size());
    }
    state.lines += static_cast<long>(typed.size());
    return typed;
}

void run_lines(State &state, long count) {
    for (const char *style : {"emacs", "gmacs", "vi"}) {
        Session s(recorder(state, style));
        s.wait_editing("> ");
        long first = 0;
        std::size_t open = 0;
        const Lines typed =
            type_lines(state, s, style == std::string("vi"), count, [&](std::size_t done) {
                s.wait_editing("> ");
                state.rss = resident(s.morp_pid());
                state.descriptors = descriptors(s.morp_pid());
                if (first == 0) {
                    first = state.rss;
                    open = state.descriptors;
                    std::printf("%s: %ld KiB, %zu descriptors after %zu lines\n", style, first,
                                open, done);
                }
                if (state.rss > first || state.descriptors > open)
                    throw std::runtime_error(std::to_string(state.rss) + " KiB, " +
                                             std::to_string(state.descriptors) +
                                             " descriptors after " + std::to_string(done));
            });
        std::printf("%s: %ld KiB, %zu descriptors after %zu lines\n", style, state.rss,
                    state.descriptors, typed.size());
        std::string got;
        for (const auto &line : typed) got += line + "\n";
        if (s.file("got") != got) throw std::runtime_error("other lines received than typed");
        check_lines("the history", typed, history_lines(state.dir + "/" + style));
    }
}

// Types `count` lines under memcheck; returns the report of it.
std::string under_valgrind(State &state, const std::string &style, long count) {
    harness::Options options = recorder(state, style);
    const std::string report = state.dir + "/valgrind";
    options.outer = {"valgrind",        "--leak-check=full",
                     "--track-fds=yes", "--log-file=" + report,
                     harness::morp(),   "--"};
    options.outer.insert(options.outer.end(), options.program.begin(), options.program.end());
    Session s(options);
    s.wait_output("> ");
    type_lines(state, s, style == "vi", count, [](std::size_t) {});
    s.resize(30, 100);
    s.type("\4");
    if (s.wait_exit() != 0) throw std::runtime_error("status not 0");
    s.wait_no_process();
    std::ostringstream text;
    text << std::ifstream(report).rdbuf();
    return text.str();
}

// The line of a report that begins, behind the process id, with `start`.
std::string line_of(const std::string &report, const std::string &start) {
    const std::size_t at = report.find("== " + start);
    if (at == std::string::npos) throw std::runtime_error("no " + start + " in:\n" + report);
    return report.substr(at + 3, report.find('\n', at) - at - 3);
}

// No error, no leak, and what is held at the end does not depend on how long it ran.
void run_valgrind(State &state) {
    for (const char *style : {"emacs", "gmacs", "vi"}) {
        const std::string brief = under_valgrind(state, style, 20);
        const std::string report = under_valgrind(state, style, 200);
        for (const char *start :
             {"FILE DESCRIPTORS: ", "    in use at exit: ", "ERROR SUMMARY: 0 "}) {
            const std::string line = line_of(report, start);
            std::printf("%s: %s\n", style, line.c_str());
            if (line != line_of(brief, start)) throw std::runtime_error(report);
        }
    }
}

int run(State &state, long minutes, long lines, bool valgrind) {
    std::printf("seed %llu\n", state.seed);
    try {
        run_minutes(state, minutes);
        if (lines > 0) run_lines(state, lines);
        if (valgrind) run_valgrind(state);
        if (testing::UnitTest::GetInstance()->Failed()) throw std::runtime_error("see above");
    } catch (const std::exception &error) {
        std::printf("--- FAULT, seed %llu, step %ld. Last actions:\n", state.seed, state.steps);
        for (const auto &action : state.actions) std::printf("%s\n", action.c_str());
        std::printf("--- %s\n", error.what());
        return 1;
    }
    std::printf("No fault in %ld lines, %ld programs, %ld kills\n", state.lines, state.visits,
                state.kills);
    return 0;
}

}  // namespace
}  // namespace soak

int main(int argc, char **argv) {
    long minutes = 0, lines = 0;
    bool valgrind = false;
    unsigned long long seed = static_cast<unsigned long long>(time(nullptr));
    testing::InitGoogleTest(&argc, argv);
    for (int n = 1; n < argc; ++n) {
        const std::string option = argv[n];
        if (option == "--valgrind") {
            valgrind = true;
            continue;
        }
        const long value = n + 1 < argc ? strtol(argv[++n], nullptr, 10) : -1;
        if (option == "--minutes" && value >= 0)
            minutes = value;
        else if (option == "--lines" && value >= 0)
            lines = value;
        else if (option == "--seed" && value >= 0)
            seed = static_cast<unsigned long long>(value);
        else
            return fprintf(stderr, "unknown option %s\n", option.c_str()), 2;
    }
    soak::State state(seed);
    return soak::run(state, minutes, lines, valgrind);
}
