// editors_test.cpp: an editor on a pseudo-terminal in this process: keys in, the bytes written and
// the line delivered out. All keys lie in the terminal before the edit starts, so at the end of the
// line they are read one by one, within it in bursts. The cases are in cases/emacs.txt and
// vi.txt; a case sets
//
//     style, columns, prompt, erase, kill, werase, lnext
//     extended    1: in extended mode, in a locale of UTF-8; "0 1": without it, and with it
//     history     commands, with "; " between them
//     typed       keys before those of each case
//     split       1: each byte of the keys comes at a wait of its own; "0 1": all at once, and so
//     stale       1: the row still shows an interrupted edit
//     cooked      1: the driver has a part of the (vi) line
//     keys        a carriage return follows
//
// and one or more of what is expected:
//
//     line        delivered; a newline follows
//     shown       bytes written before those of `output`
//     output      bytes written; a newline follows
//     bells       how often the bell was rung
//     row, col    what the cursor's row showed before the line's end, and the cursor's column
//     next        same, other: what the prompt, printed once more, counts as
//
// A case that is called "... something" goes on in the terminal of the case before.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "edit.h"
#include "edit/decode.h"
#include "edit/prompt.h"
#include "editlib.h"
#include "emacs.h"
#include "extended.h"
#include "harness/cases.h"
#include "harness/screen.h"
#include "history.h"
#include "pass.h"
#include "pty.h"
#include "tty.h"
#include "utils.h"
#include "vi.h"
#include "wait.h"

// State: the keys that are still to come, one for each wait, and where they are typed.
static std::string_view Coming;
static int Keyboard = -1;

static KeyWait wait_for_one(long timeout_ns) {
    if (Coming.empty()) return pass_host.wait_key(timeout_ns);
    EXPECT_EQ(write(Keyboard, Coming.data(), 1), 1);
    Coming.remove_prefix(1);
    pollfd there = {STDIN_FILENO, POLLIN, 0};
    EXPECT_EQ(poll(&there, 1, -1), 1);
    return KeyWait::ready;
}
static constexpr EditHost kOneByOne = {wait_for_one, [] { return false; }};

class EditorTerminal {
public:
    explicit EditorTerminal(const harness::Fields &setting) {
        setenv("COLUMNS", harness::get(setting, "columns", "80").c_str(), 1);
        setenv("Q_VXHISTFILE", "", 1);
        setenv("Q_VXHISTSIZE", "128", 1);
        setenv("Q_VXEDITOR", harness::get(setting, "style").c_str(), 1);
        Extended = harness::get(setting, "extended", "0") == "1" ? 1 : 0;
        Dumb_terminal = 0;
        setenv("LC_ALL", Extended != 0 ? "C.UTF-8" : "C", 1);
        saved_in_ = dup(STDIN_FILENO);
        saved_err_ = dup(STDERR_FILENO);
        int out[2] = {-1, -1};
        keys_ = pty_master();
        const int slave = open(pty_dname_slave(), O_RDWR | O_NOCTTY);
        if (slave < 0 || pipe(out) != 0) abort();
        termios t{};
        tcgetattr(slave, &t);
        t.c_iflag &= ~static_cast<tcflag_t>(IXON);
        t.c_cc[VERASE] = key(setting, "erase", "^?");
        t.c_cc[VKILL] = key(setting, "kill", "^U");
        // The driver leaves ^V in the line, and what would be a signal is a key.
        for (const int special : {VINTR, VQUIT, VSUSP}) t.c_cc[special] = 0;
        t.c_cc[VLNEXT] = setting.contains("lnext") ? key(setting, "lnext", "") : cc_t{0};
        t.c_cc[VWERASE] = key(setting, "werase", "^W");
        tcsetattr(slave, TCSANOW, &t);
        Tty_original.tty_termios = t;
        dup2(slave, STDIN_FILENO);
        dup2(out[1], STDERR_FILENO);
        close(slave);
        close(out[1]);
        out_ = out[0];
        fcntl(out_, F_SETFL, O_NONBLOCK);
        edit_reset_for_test();
        e_host = harness::get(setting, "split") == "1" ? &kOneByOne : &pass_host;
        emacs_reset_for_test();
        vi_reset_for_test();
        kread_reset_for_test();
        opt_flag = get_editor_type();
        decode_reset();
        kread_begin();
        Vesk_on = 1;
        hist_open();
    }
    ~EditorTerminal() {
        hist_close_for_test();
        dup2(saved_in_, STDIN_FILENO);
        dup2(saved_err_, STDERR_FILENO);
        for (const int fd : {saved_in_, saved_err_, keys_, out_}) close(fd);
    }
    EditorTerminal(const EditorTerminal &) = delete;
    EditorTerminal &operator=(const EditorTerminal &) = delete;

    struct Line {
        int result;
        std::string text;  // what was delivered
        std::string output;
    };
    Line read(std::string_view keys, bool cooked = false) {
        const bool vi = e_driver_begins();
        if (vi) e_setalt(STDIN_FILENO);
        if (!cooked) e_setraw(STDIN_FILENO);
        // A vi line begins in raw mode only with a key typed ahead.
        const bool ahead = vi && !cooked && !keys.empty();
        std::string_view typed = keys.substr(ahead ? 1 : 0);
        Keyboard = keys_;
        if (e_host == &kOneByOne) Coming = std::exchange(typed, "");
        EXPECT_EQ(write(keys_, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
        if (ahead) e_ungetchar(byte_of(keys[0]));
        char line[kLineBuffer + 1] = {};
        line[kLineBuffer] = '!';  // nobody may write here
        const int result = kread(STDIN_FILENO, line, Limits.capacity);
        EXPECT_EQ(line[kLineBuffer], '!');
        char bytes[32768];
        const ssize_t n = ::read(out_, bytes, sizeof bytes);
        return {result,
                {line, static_cast<std::size_t>(std::max(result, 0))},
                {bytes, static_cast<std::size_t>(std::max<ssize_t>(n, 0))}};
    }

private:
    static cc_t key(const harness::Fields &setting, const char *name, const char *otherwise) {
        return static_cast<cc_t>(harness::unescaped(harness::get(setting, name, otherwise))[0]);
    }

    int saved_in_, saved_err_, keys_ = -1, out_ = -1;
};

static void remember(std::string_view commands) {
    while (!commands.empty()) {
        const std::size_t end = std::min(commands.find("; "), commands.size());
        const std::string command = harness::unescaped(commands.substr(0, end));
        hist_record(command.data(), command.size());
        commands.remove_prefix(std::min(end + 2, commands.size()));
    }
}

// Output that ended the line's row: what that showed before.
static void check_row(const harness::Fields &c, std::string output) {
    if (!c.contains("row")) return;
    ASSERT_TRUE(output.ends_with('\n'));
    output.pop_back();
    harness::Screen screen(12, std::stoi(harness::get(c, "columns", "80")));
    screen.feed(output);
    const harness::Place at = screen.cursor();
    EXPECT_EQ(screen.row(at.row), harness::unescaped(c.at("row")));
    EXPECT_EQ(std::to_string(at.col), c.at("col"));
}

static void check_case(EditorTerminal &terminal, const harness::Fields &c) {
    using harness::unescaped;
    // A misspelt column would be a case that expects nothing.
    static const std::set<std::string> kKnown = {
        "name",  "extended", "style", "columns", "prompt", "erase", "kill",  "werase",
        "lnext", "history",  "typed", "stale",   "cooked", "keys",  "split", "line",
        "shown", "output",   "bells", "row",     "col",    "next"};
    for (const auto &[name, text] : c) EXPECT_TRUE(kKnown.contains(name)) << name;
    const std::string prompt = unescaped(harness::get(c, "prompt"));
    e_setup_prime(prompt.data(), static_cast<int>(prompt.size()));
    e_row_stale = std::stoi(harness::get(c, "stale", "0"));
    const std::string keys = unescaped(harness::get(c, "typed") + c.at("keys"), "\r");
    const EditorTerminal::Line got = terminal.read(keys, c.contains("cooked"));
    const auto expect = [&](const char *name, const std::string &value, const char *end,
                            const std::string &before) {
        if (!c.contains(name)) return;
        EXPECT_EQ(value, unescaped(before + c.at(name), end)) << name;
    };
    expect("line", got.text, "\n", "");
    expect("output", got.output, "\n", harness::get(c, "shown"));
    expect("bells", std::to_string(std::count(got.output.begin(), got.output.end(), '\a')), "", "");
    check_row(c, got.output);
    if (!c.contains("next")) return;
    e_setup_prime(prompt.data(), static_cast<int>(prompt.size()));
    expect("next", e_compare_prompt() == PromptNow::same ? "same" : "other", "", "");
}

static void check_cases(const harness::Section &section, const harness::Fields &mode) {
    SCOPED_TRACE("extended = " + mode.at("extended") + ", split = " + mode.at("split"));
    std::optional<EditorTerminal> terminal;
    for (harness::Case c : section.cases()) {
        SCOPED_TRACE(c.where);
        for (const auto &[name, value] : mode) c.fields[name] = value;
        if (!c.fields.at("name").starts_with("...")) {
            terminal.reset();
            terminal.emplace(c.fields);
            remember(harness::get(c.fields, "history"));
        }
        check_case(*terminal, c.fields);
    }
}

static void check_modes(const harness::Section &section) {
    const auto modes = [&](const char *name) {
        return harness::words_of(harness::get(section.settings, name, "0"));
    };
    for (const std::string &extended : modes("extended"))
        for (const std::string &split : modes("split"))
            check_cases(section, {{"extended", extended}, {"split", split}});
}

class Editors : public testing::TestWithParam<harness::Section> {};

TEST_P(Editors, DoAsWritten) { check_modes(GetParam()); }

INSTANTIATE_TEST_SUITE_P(emacs, Editors, testing::ValuesIn(harness::sections_of("emacs.txt")),
                         harness::kNamed);
INSTANTIATE_TEST_SUITE_P(vi, Editors, testing::ValuesIn(harness::sections_of("vi.txt")),
                         harness::kNamed);

// A place for each of the sequences in cases/keys.txt: the keys before and behind it, and the
// column that tells the line, empty where the place doesn't matter.
struct Spot {
    const char *style, *before, *behind, *column;
};
static constexpr Spot kSpots[] = {{"emacs", "ab cd", "X", "line"},
                                  {"vi", "ab cd", "X", "line"},
                                  {"vi", "ab cd\\e$", "iX", "commands"}};

static void check_sequences(const harness::Case &c, const Spot &place) {
    harness::Fields fields = c.fields;
    fields["style"] = place.style;
    fields["line"] = c.fields.at(place.column);
    for (const char *column : {"sequences", "commands"}) fields.erase(column);
    if (fields["bells"].empty()) fields.erase("bells");
    EditorTerminal terminal(fields);
    remember(fields["history"]);
    for (const std::string &sequence : harness::words_of(c.fields.at("sequences"))) {
        SCOPED_TRACE(sequence);
        fields["keys"] = place.before + sequence + place.behind;
        check_case(terminal, fields);
    }
}

TEST(Sequences, AreTakenWholeHoweverTheyAreSplit) {
    for (const harness::Section &section : harness::sections_of("keys.txt"))
        for (const harness::Case &c : section.cases())
            for (const Spot &place : kSpots) {
                SCOPED_TRACE(c.where + ": " + place.style + ", " + place.column);
                if (!c.fields.at(place.column).empty()) check_sequences(c, place);
            }
}

TEST(EditorsEnd, AtASignal) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        EditorTerminal terminal(harness::Fields{{"style", style}});
        progdone = SIGINT;
        EXPECT_EQ(terminal.read("a").result, 0);
        EXPECT_EQ(e_row_stale, 1);
        EXPECT_EQ(terminal.read("", true).result, 0);
        progdone = 0;
    }
}
