#include "harness/script.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <sstream>

#include "harness/session.h"

namespace harness {

static std::string quoted(const std::string &text) {
    std::string out = "'";
    for (const char c : text) out += c == '\'' ? "'\\''" : std::string(1, c);
    return out + "'";
}

static Options options_of(const Fields &settings) {
    const std::string prompt = unescaped(get(settings, "prompt"));
    const std::string columns = get(settings, "columns", "80");
    std::string script = get(settings, "program");
    if (script.empty()) {
        const std::string ask = "printf %s " + quoted(prompt);
        script = "mkfifo \"$HOME/do\"; (while :; do . \"$HOME/do\"; done) & " + ask +
                 "; while read -r x; do printf '<%s>\\n' \"$x\"; " + ask + "; done";
    }
    Options options{.style = get(settings, "style"),
                    .program = {"sh", "-c", script},
                    .env = {{"COLUMNS", columns}},
                    .cols = std::stoi(columns)};
    if (script == "actor echo") options.program = {"actor", "echo", prompt};
    return options;
}

// Has the shell beside the program obey `commands`.
static void run(Session &s, const std::string &commands) {
    const int fifo = open((s.home() + "/do").c_str(), O_WRONLY | O_CLOEXEC);
    const std::string line = commands + "\n";
    EXPECT_EQ(write(fifo, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    close(fifo);
}

static void print(Session &s, const std::string &bytes) { run(s, "printf %s " + quoted(bytes)); }

static void expect_line(Session &s, int row, int col, const std::string &text) {
    const std::string shown = text.substr(0, text.find_last_not_of(' ') + 1);
    const Session::Place place = {row, col};
    s.wait_for("row " + std::to_string(row) + " \"" + shown + "\", column " + std::to_string(col),
               [&] { return s.row(row) == shown && s.cursor() == place; });
    s.wait_asleep();
    EXPECT_EQ(s.row(row), shown);
    EXPECT_EQ(s.cursor(), place);
}

static std::string recorded(Session &s) { return s.history("sh") + s.history("actor"); }

static std::string rest(std::istream &in) {
    std::string text;
    std::getline(in >> std::ws, text);
    return unescaped(text);
}

static int number(std::istream &in) {
    int n = -1;
    in >> n;
    return n;
}

static void expect_mode(Session &s, std::istream &in) {
    const std::string name = rest(in);
    s.wait_mode(name == "alt" ? Mode::alt : name == "raw" ? Mode::raw : Mode::pass);
}

static void suspend(Session &s, std::istream &) {
    s.signal(SIGUSR2);
    s.wait_stopped();
}

using Step = void (*)(Session &s, std::istream &in);
static const std::map<std::string, Step> kSteps = {
    {"type", [](Session &s, std::istream &in) { s.type(rest(in)); }},
    {"print", [](Session &s, std::istream &in) { print(s, rest(in)); }},
    {"run", [](Session &s, std::istream &in) { run(s, rest(in)); }},
    {"text", [](Session &s, std::istream &in) { s.wait_text(rest(in)); }},
    {"output", [](Session &s, std::istream &in) { s.wait_output(rest(in)); }},
    {"editing", [](Session &s, std::istream &in) { s.wait_editing(rest(in)); }},
    {"row",
     [](Session &s, std::istream &in) {
         const int row = number(in);
         s.wait_row(row, rest(in));
     }},
    {"line",
     [](Session &s, std::istream &in) {
         const int row = number(in), col = number(in);
         expect_line(s, row, col, rest(in));
     }},
    {"mode", expect_mode},
    {"asleep", [](Session &s, std::istream &) { s.wait_asleep(); }},
    {"suspend", suspend},
    {"fg", [](Session &s, std::istream &) { s.fg(); }},
    {"exit", [](Session &s, std::istream &) { EXPECT_EQ(s.wait_exit(), 0); }},
    {"recorded",
     [](Session &s, std::istream &in) {
         EXPECT_NE(recorded(s).find(rest(in) + "\n"), std::string::npos);
     }},
    {"unrecorded",
     [](Session &s, std::istream &in) {
         EXPECT_EQ(recorded(s).find(rest(in)), std::string::npos);
     }},
};

static void check_wait(const Fields &wait) {
    const std::string prompt = unescaped(get(wait, "prompt")), shown = unescaped(wait.at("shown"));
    const int col = std::stoi(wait.at("col"));
    Session s(options_of(wait));
    s.wait_editing(prompt);
    s.type(unescaped(wait.at("keys")));
    s.wait_mode(Mode::raw);
    std::string before = prompt;
    int row = 0;
    // The last prompt keeps the line's tab stops.
    for (const std::string &next : {prompt, "a longer" + prompt}) {
        expect_line(s, row, static_cast<int>(before.size()) + col, before + shown);
        print(s, "hello\n" + next);
        s.wait_row(row++, before + "hello");
        before = next;
    }
    expect_line(s, row, static_cast<int>(before.size()) + col, before + shown);
    s.type(unescaped(wait.at("after"), "\r"));
    s.wait_output("<" + unescaped(wait.at("line")) + ">");
}

static void check_script(const Section &section) {
    Session s(options_of(section.settings));
    for (const auto &[where, text] : section.lines) {
        SCOPED_TRACE(where + text);
        std::istringstream in(text);
        std::string verb;
        in >> verb;
        try {
            kSteps.at(verb)(s, in);
        } catch (const std::exception &e) {
            FAIL() << e.what();
        }
    }
}

void check_sessions(const Section &section) {
    if (!section.is_table()) return check_script(section);
    for (const Case &c : section.cases()) {
        SCOPED_TRACE(c.where);
        try {
            check_wait(c.fields);
        } catch (const std::exception &e) {
            FAIL() << e.what();
        }
    }
}

}  // namespace harness
