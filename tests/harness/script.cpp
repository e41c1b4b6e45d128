#include "harness/script.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace harness {

// Nothing is said about the program.
static bool is_usual(const Fields &settings) {
    return !settings.contains("program") && !settings.contains("script") &&
           !settings.contains("outer");
}

static Options options_of(const Fields &settings, const std::string &style,
                          const std::string &mode) {
    Options options{.style = style,
                    .morp_args = words_of(get(settings, "args", "-m " + mode)),
                    .prompt = unescaped(get(settings, "prompt", ">\\s")),
                    .rows = std::stoi(get(settings, "rows", "24")),
                    .cols = std::stoi(get(settings, "columns", "80"))};
    if (get(settings, "extended", "0") == "1")
        options.env = {{"Q_VXEXTENDED", "1"}, {"LC_ALL", "C.UTF-8"}};
    if (settings.contains("outer")) options.outer = {"sh", "-c", settings.at("outer")};
    options.program = words_of(get(settings, "program"));
    for (std::string &word : options.program) word = unescaped(word);
    if (settings.contains("script")) options.program = {"sh", "-c", settings.at("script")};
    if (is_usual(settings)) options.program = {"actor", "echo", options.prompt};
    return options;
}

std::string rest(std::istream &in) {
    std::string text;
    std::getline(in >> std::ws, text);
    return unescaped(text);
}

static int number(std::istream &in) {
    int n = 0;
    return in >> n ? n : 0;
}

static Place place(std::istream &in) { return {number(in), number(in)}; }

static int signal_of(std::istream &in) {
    const std::string name = rest(in);
    for (int sig = 1; sig < NSIG; sig++) {
        const char *known = sigabbrev_np(sig);
        if (known != nullptr && name == known) return sig;
    }
    throw std::runtime_error("signal " + name);
}

// In the output, which holds the carriage returns of two terminals.
static std::string printed(Script &s) {
    std::string text = s.output();
    std::erase(text, '\r');
    return text;
}

static std::ptrdiff_t count(const std::string &text, const std::string &part) {
    std::ptrdiff_t n = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++) n++;
    return n;
}

static void wait_mode(Script &s, std::istream &in) {
    static const std::map<std::string, Mode> kModes = {
        {"original", Mode::original}, {"pass", Mode::pass}, {"raw", Mode::raw}, {"alt", Mode::alt}};
    s.wait_mode(kModes.at(rest(in)));
}

static void wait_line(Script &s, std::istream &in) {
    const Place at = place(in);
    std::string text = rest(in);
    text.erase(text.find_last_not_of(' ') + 1);
    s.wait_settled(
        "row " + std::to_string(at.row) + " \"" + text + "\", column " + std::to_string(at.col),
        [&] { return s.row(at.row) == text && s.cursor() == at; });
}

static void talk(Script &s, std::istream &in) {
    std::string text;
    std::getline(in, text);
    const Words cells = cells_of(text);
    s.type(unescaped(cells.at(0)));
    s.rows.pop_back();
    std::istringstream rows(unescaped(cells.at(1), "\n"));
    while (std::getline(rows, text)) s.rows.push_back(text);
    std::string wanted;
    for (const std::string &row : s.rows)
        wanted += row.substr(0, row.find_last_not_of(' ') + 1) + '\n';
    wanted.erase(wanted.find_last_not_of('\n') + 1);
    const auto col = cells.size() > 2 ? std::stoul(cells[2]) : s.rows.back().size();
    s.wait_screen(wanted + '\n', {static_cast<int>(s.rows.size()) - 1, static_cast<int>(col)});
}

static void send(Script &s, std::istream &in) {
    const std::string line = rest(in);
    s.type(line + "\r");
    s.wait_settled("<" + line + ">",
                   [&] { return s.output().find("<" + line + ">", s.from) != std::string::npos; });
}

static void spread(Script &s, std::istream &in) {
    for (const char key : rest(in)) {
        const auto mark = s.mark();
        s.wait_for("more output", [&] {
            return s.mark() > mark + 1000 || s.output().find("flooded") != std::string::npos;
        });
        s.type({&key, 1});
    }
}

// Time has to pass for this, as for nothing else here; a wake-up in it is a fault at any length.
static void expect_idle(Script &s, std::istream &in) {
    const Nap before = s.life();
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    s.wait_for("a while", [&] { return std::chrono::steady_clock::now() > end; });
    EXPECT_LE(s.life().voluntary - before.voluntary, number(in));
    EXPECT_LT(s.life().processor_ns - before.processor_ns, 20'000'000);  // it does not spin either
}

// What is not there yet when a step is taken may still come too early.
static void expect_late(Script &s, std::istream &in) {
    const auto least = std::chrono::milliseconds(number(in));
    std::string step;
    std::getline(in >> std::ws, step);
    take(s, step);
    EXPECT_GE(std::chrono::steady_clock::now() - s.acted, least);
}

using Step = void (*)(Script &s, std::istream &in);

// The steps that make a state.
static const std::map<std::string, Step> kActs = {
    {"type", [](Script &s, std::istream &in) { s.type(rest(in)); }},
    {"send", send},
    {"print", [](Script &s, std::istream &in) { s.print(rest(in)); }},
    {"stty",
     [](Script &s, std::istream &in) {
         EXPECT_EQ(system(("stty -F " + s.program_terminal() + " " + rest(in)).c_str()), 0);
     }},
    {"signal", [](Script &s, std::istream &in) { s.signal(signal_of(in)); }},
    {"kill", [](Script &s, std::istream &in) { kill(s.program_pid(), signal_of(in)); }},
    {"fg", [](Script &s, std::istream &) { s.fg(); }},
    {"bg", [](Script &s, std::istream &) { s.resume('b'); }},
    {"resize",
     [](Script &s, std::istream &in) {
         const Place to = place(in);
         s.resize(to.row, to.col);
     }},
    {"hangup", [](Script &s, std::istream &) { s.hang_up(); }},
    {"restore", [](Script &s, std::istream &) { s.set_terminal(s.terminal_at_start()); }},
    {"edit", [](Script &s, std::istream &in) { s.edit(rest(in)); }},
    {"talk", talk},
    {"spread", spread},
    {"paste", [](Script &s, std::istream &in) { s.type(s.file(rest(in))); }},
};

static const std::map<std::string, Step> kLooks = {
    {"editing", [](Script &s, std::istream &in) { s.wait_editing(rest(in)); }},
    {"row",
     [](Script &s, std::istream &in) {
         const int row = number(in);
         s.wait_row(row, rest(in));
     }},
    {"line", wait_line},
    {"shown",
     [](Script &s, std::istream &in) {
         const int col = number(in);
         s.wait_line(col, rest(in));
     }},
    {"text", [](Script &s, std::istream &in) { s.wait_text(rest(in)); }},
    {"output", [](Script &s, std::istream &in) { s.wait_output(rest(in), s.from); }},
    {"never", [](Script &s, std::istream &in) { EXPECT_EQ(count(s.output(), rest(in)), 0); }},
    {"once", [](Script &s, std::istream &in) { EXPECT_EQ(count(s.output(), rest(in)), 1); }},
    {"printed", [](Script &s, std::istream &in) { EXPECT_EQ(printed(s), rest(in)); }},
    {"mode", wait_mode},
    {"asleep", [](Script &s, std::istream &) { s.wait_asleep(); }},
    {"silent", [](Script &s, std::istream &) { s.wait_silent(); }},
    {"idle", expect_idle},
    {"late", expect_late},
    {"stopped", [](Script &s, std::istream &in) { EXPECT_EQ(s.wait_stopped(), signal_of(in)); }},
    {"exit", [](Script &s, std::istream &in) { EXPECT_EQ(s.wait_exit(), number(in)); }},
    {"gone", [](Script &s, std::istream &) { s.wait_no_process(); }},
    {"recorded", [](Script &s, std::istream &in) { EXPECT_GT(count(s.history(), rest(in)), 0); }},
    {"unrecorded", [](Script &s, std::istream &in) { EXPECT_EQ(count(s.history(), rest(in)), 0); }},
    {"keep",
     [](Script &s, std::istream &in) {
         const std::string name = s.home() + "/" + rest(in);
         std::ofstream(name) << s.output();
         std::ofstream(name + ".rows") << s.screen();
     }},
    {"run",
     [](Script &s, std::istream &in) {
         EXPECT_EQ(system(("cd '" + s.home() + "' && " + rest(in)).c_str()), 0);
     }},
    {"file",
     [](Script &s, std::istream &in) {
         std::string name;
         in >> name;
         EXPECT_EQ(s.file(name), rest(in));
     }},
    {"size", [](Script &s, std::istream &in) { EXPECT_EQ(s.size(), place(in)); }},
};

void take(Script &s, const std::string &text, const Verbs &more) {
    const bool repeated = text.starts_with("repeat ");
    const std::size_t end = repeated ? std::string::npos : text.find(" then ");
    std::istringstream in(text.substr(0, end));
    std::string verb;
    in >> verb;
    if (repeated) {
        const int times = number(in);
        std::getline(in >> std::ws, verb);
        for (int n = 0; n < times; n++) take(s, verb, more);
        return;
    }
    const auto act = kActs.find(verb);
    const auto look = kLooks.find(verb);
    if (const auto own = more.find(verb); own != more.end()) {
        own->second(in);
    } else if (act != kActs.end()) {
        s.from = s.mark();
        s.acted = std::chrono::steady_clock::now();
        act->second(s, in);
    } else if (look != kLooks.end()) {
        look->second(s, in);
    } else {
        throw std::runtime_error("no such step");
    }
    if (end != std::string::npos) take(s, text.substr(end + 6), more);
}

static void check_session(const Section &section, const Fields &fields, const std::string &style,
                          const std::string &mode) {
    Fields settings = fields;
    for (auto &[name, value] : settings) value = filled(value, fields);
    Script s(options_of(settings, style, mode));
    if (is_usual(settings)) s.wait_start();
    for (const auto &[where, text] : section.steps()) {
        const std::string step = filled(text, settings);
        SCOPED_TRACE(where + step);
        try {
            take(s, step);
        } catch (const std::exception &e) {
            FAIL() << e.what();
        }
    }
}

void check_sessions(const Section &section) {
    const std::string needed = get(section.settings, "needs");
    if (!needed.empty() && system(("command -v " + needed + " >/dev/null").c_str()) != 0)
        GTEST_SKIP() << needed << " is not installed";
    for (const Case &c : section.cases()) {
        for (const std::string &style : words_of(get(c.fields, "style", "emacs"))) {
            for (const std::string &mode : words_of(get(c.fields, "mode", "1"))) {
                SCOPED_TRACE(c.where + ", " + style + ", -m " + mode);
                Fields fields = c.fields;
                fields["style"] = style;
                fields["mode"] = mode;
                fields["own"] = style == "vi" && get(fields, "extended") != "1" ? "alt" : "raw";
                for (int n = std::stoi(get(fields, "times", "1")); n > 0; n--)
                    check_session(section, fields, style, mode);
            }
        }
    }
}

}  // namespace harness
