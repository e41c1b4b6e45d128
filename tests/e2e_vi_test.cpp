// e2e_vi_test.cpp: the vi-like editor in the whole program: the way from the driver's part of a
// line to the editor's and back, what the screen shows when output arrives in each of the editor's
// waits, keys typed ahead. The commands one by one are in vi_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "harness/session.h"

using namespace std::string_literals;
using harness::Mode;
using harness::Options;

static const std::string kEsc = "\x1b";

// A program that reads lines, while a part of it in the background obeys what the test writes.
class Speaker : public Session {
public:
    explicit Speaker(const std::string &prompt, int cols = 80)
        : Session(Options{
              .style = "vi",
              .program = {"sh", "-c",
                          "mkfifo \"$HOME/do\"; (while :; do . \"$HOME/do\"; done) & printf '" +
                              prompt + "'; while read -r x; do printf '<%s>\\n" + prompt +
                              "' \"$x\"; done"},
              .env = {{"COLUMNS", std::to_string(cols)}},
              .cols = cols,
          }) {}
    // Runs shell commands beside the program.
    void obey(const std::string &commands) {
        const int fifo = open((home() + "/do").c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(fifo, 0);
        const std::string line = commands + "\n";
        EXPECT_EQ(write(fifo, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        close(fifo);
    }
};

static Options echo(const std::string &prompt) {
    return {.style = "vi", .program = {"actor", "echo", prompt}};
}

// Types `keys` and waits until the row of the cursor is `row` and the cursor in column `col`.
static void expect_row(Session &s, const std::string &keys, const std::string &row, int col) {
    s.type(keys);
    s.wait_for("\"" + row + "\" and column " + std::to_string(col),
               [&] { return s.row(s.cursor().row) == row && s.cursor().col == col; });
    s.wait_asleep();
}

TEST(ViLine, GoesFromTheDriverToTheEditorAndBack) {
    Session s(echo("> "));
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        s.wait_editing("> ");
        EXPECT_EQ(s.mode(), Mode::alt);
        s.type("plain\x7fn\r");
        s.wait_row(4 * i + 1, "<plain>");
        EXPECT_EQ(s.row(4 * i), "> plain");
        s.wait_editing("> ");
        expect_row(s, "edit" + kEsc, "> edit", 5);
        EXPECT_EQ(s.mode(), Mode::raw);
        expect_row(s, "i-", "> edi-t", 6);
        s.type("\r");
        s.wait_row(4 * i + 3, "<edi-t>");
        EXPECT_EQ(s.row(4 * i + 2), "> edi-t");
    }
    s.wait_editing("> ");
    s.type("\x04");
    s.wait_text("<end>");
    EXPECT_EQ(s.wait_exit(), 0);
    EXPECT_EQ(s.history("actor").find("edit\n"), std::string::npos);
    EXPECT_NE(s.history("actor").find("edi-t\n"), std::string::npos);
}

TEST(ViLine, EndOfInputInRawMode) {
    Session s(echo("> "));
    s.wait_editing("> ");
    s.type("a" + kEsc);
    s.wait_mode(Mode::raw);
    s.type("xi\x04");
    s.wait_text("<end>");
    EXPECT_EQ(s.wait_exit(), 0);
}

TEST(ViLine, ArrowKeysHeldAtThePrompt) {
    Session s(echo("> "));
    for (const char *line : {"one", "two", "three"}) {
        s.wait_editing("> ");
        s.type(line + "\r"s);
        s.wait_text("<"s + line + ">");
    }
    s.wait_editing("> ");
    expect_row(s, kEsc + "[A", "> three", 2);
    expect_row(s, kEsc + "[A" + kEsc + "[A" + kEsc + "[A", "> one", 2);
    s.wait_output("\a");
    s.type(kEsc + "[B\r");
    s.wait_text("<two>");
    // All of them before the first was obeyed.
    s.wait_editing("> ");
    s.type(kEsc + "[A" + kEsc + "[A" + kEsc + "[C" + kEsc + "[Cx\r");
    s.wait_text("<thee>");
}

TEST(ViLine, LinesTypedAheadOfAnEditedOne) {
    Session s(echo("> "));
    s.wait_editing("> ");
    s.type("abc" + kEsc + "x\rsecond\rthi" + kEsc + "ard\r\rlast\r");
    for (const char *line : {"<ab>", "<second>", "<third>", "<>", "<last>"}) s.wait_text(line);
    s.wait_editing("> ");
    EXPECT_EQ(s.mode(), Mode::alt);
    s.type("cooked\r");
    s.wait_text("<cooked>");
}

TEST(ViLine, ALongPasteIsText) {
    Session s(Options{.style = "vi",
                      .program = {"sh", "-c", "printf '> '; read -r x; printf \"<${#x}>\""}});
    s.wait_editing("> ");
    // Obeyed as commands, the tail would change the line.
    s.type(std::string(300, 'x') + std::string(100, 'D') + "\r");
    s.wait_text("<400>");
}

TEST(ViLine, SignalDropsTheLineAndTheNextHasItsOwnRow) {
    Session s("vi", "trap '' INT; printf '> '; read -r x; printf \"<$x>\"");
    s.wait_editing("> ");
    expect_row(s, "abc" + kEsc, "> abc", 4);
    s.type("\x03");
    s.wait_mode(Mode::alt);
    s.wait_asleep();
    s.type("xy" + kEsc);
    s.wait_row(1, "> xy");
    s.type("x\r");
    s.wait_text("<x>");
}

TEST(ViLine, NarrowTerminals) {
    Speaker s("prompt of 18 col> ", 20);
    s.wait_editing("prompt of 18 col> ");
    // The line's own row: 18 columns and the marker.
    s.type("ab" + kEsc);
    s.wait_row(1, "ab");
    expect_row(s, "A cdefghijklmnopq", "ab cdefghijklmnopq", 18);
    expect_row(s, "r", "ijklmnopqr        <", 10);
    expect_row(s, kEsc + "0", "ab cdefghijklmnopq>", 0);
    s.type("x\r");
    s.wait_text("<b cdefghijklmnopqr>");
}

struct AsideCase {
    const char *name;
    std::string before;  // keys, after which the editor waits
    std::string shown;   // the line as shown then, without its prompt
    int column;          // of the cursor, prompt not counted
    std::string after;   // further keys
    std::string line;    // what the program gets
};

static const std::vector<AsideCase> kAsideCases = {
    {"command mode", "abc" + kEsc, "abc", 2, "x\r", "ab"},
    {"input mode", "abc" + kEsc + "iX", "abXc", 3, "Y\r", "abXYc"},
    {"at the end of the line", "abc" + kEsc + "aX", "abcX", 4, "Y\r", "abcXY"},
    {"the first column of input", "abc" + kEsc + "aXY", "abcXY", 5, "\x7f\x7f\x7f\x7f\r", "abc"},
    {"an empty line", kEsc, "", 0, "ib\r", "b"},
    {"overwriting", "abc" + kEsc + "0RX", "Xbc", 1, "Y\r", "XYc"},
    {"control characters", "a" + kEsc + "a\x16\x07_", "a^G_", 4, "b\r", "a\x07_b"},
    {"a count", "abcd" + kEsc + "03", "abcd", 0, "x\r", "d"},
    {"an operator", "ab cd" + kEsc + "0d", "ab cd", 0, "w\r", "cd"},
    {"an operator and a count", "a b c d" + kEsc + "0c2", "a b c d", 0, "wX\r", "X c d"},
    {"a find", "axb" + kEsc + "0f", "axb", 0, "xx\r", "ab"},
    {"an operator and a find", "axb" + kEsc + "0d2f", "axb", 0, "b" + kEsc + "xt\x7fi\r", "axb"},
    {"an operator and a find that succeeds", "axb" + kEsc + "0df", "axb", 0, "x\r", "b"},
    {"replacing", "abc" + kEsc + "r", "abc", 2, "X\r", "abX"},
    {"escape", "abc" + kEsc + kEsc, "abc", 2, "[Dx\r", "ac"},
    {"escape and bracket", "abc" + kEsc + kEsc + "[", "abc", 2, "Dx\r", "ac"},
    {"a quote", "abc" + kEsc + "a\x16", "abc", 3, "\x01\r", "abc\x01"},
    {"undo", "abc" + kEsc + "hx", "ac", 1, "u\r", "abc"},
    {"what was deleted", "abc" + kEsc + "0x", "bc", 0, "$p\r", "bca"},
    {"what is to be repeated", "abc" + kEsc + "0sXY" + kEsc, "XYbc", 1, "$.\r", "XYbXY"},
    {"a search text", "abc" + kEsc + "/zz", "/zz", 3, "\x7f\x7f\x7fx\r", "ab"},
    {"a search text, for an empty line", kEsc + "/z", "/z", 2, "\x7f\x7fib\r", "b"},
};

static void check_aside(const AsideCase &c, const std::string &prompt) {
    Speaker s("> ");
    s.wait_editing("> ");
    s.type(c.before);
    s.wait_row(0, ("> " + c.shown).substr(0, c.shown.empty() ? 1 : std::string::npos));
    s.wait_mode(Mode::raw);
    s.wait_for("the cursor", [&] { return s.cursor() == Session::Place{0, 2 + c.column}; });
    s.wait_asleep();
    s.obey("printf 'hello\\n" + prompt + "'");
    s.wait_row(0, "> hello");
    const std::string row = prompt + c.shown;
    s.wait_row(1, row.substr(0, row.find_last_not_of(' ') + 1));
    s.wait_asleep();
    EXPECT_EQ(s.cursor(), (Session::Place{1, static_cast<int>(prompt.size()) + c.column}));
    s.type(c.after);
    s.wait_output("<" + c.line + ">");
}

TEST(ViOutput, EveryWaitMakesWayAndGoesOn) {
    for (const AsideCase &c : kAsideCases) {
        SCOPED_TRACE(c.name);
        check_aside(c, "> ");
    }
}

TEST(ViOutput, LineFollowsALongerPrompt) {
    for (const AsideCase &c : kAsideCases) {
        SCOPED_TRACE(c.name);
        check_aside(c, "a longer prompt> ");
    }
}

TEST(ViOutput, DriversPartStaysWithTheTerminal) {
    Speaker s("> ");
    s.wait_editing("> ");
    s.type("abc");
    s.wait_editing("> abc");
    s.obey("printf 'hello\\n> '");
    s.wait_row(0, "> abchello");
    s.wait_editing("> ");
    // The editor shows the line whole.
    expect_row(s, "d" + kEsc, "> abcd", 5);
    s.type("\r");
    s.wait_text("<abcd>");
}

TEST(ViOutput, HistoryPositionStays) {
    Speaker s("> ");
    for (const char *line : {"one", "two"}) {
        s.wait_editing("> ");
        s.type(line + "\r"s);
        s.wait_text("<"s + line + ">");
    }
    s.wait_editing("> ");
    expect_row(s, "abc" + kEsc + "k", "> two", 2);
    s.obey("printf 'hello\\n> '");
    s.wait_row(4, "> hello");
    s.wait_row(5, "> two");
    expect_row(s, "k", "> one", 2);
    expect_row(s, "2j", "> abc", 4);
    s.type("\r");
    s.wait_text("<abc>");
}

TEST(ViOutput, MovedWindow) {
    Speaker s("> ");
    s.wait_editing("> ");
    const std::string text(100, 'x');
    s.type(kEsc);
    s.wait_mode(Mode::raw);
    s.type("i" + text);
    s.wait_for("the marker", [&] { return s.row(0).find('<') != std::string::npos; });
    s.wait_asleep();
    const std::string before = s.row(0);
    const int column = s.cursor().col;
    s.obey("printf 'hello\\n> '");
    s.wait_row(0, "> hello");
    s.wait_row(1, before);
    EXPECT_EQ(s.cursor(), (Session::Place{1, column}));
    expect_row(s, kEsc + "0", "> " + text.substr(0, 75) + ">", 2);
    s.type("\r");
    s.wait_output("<" + text + ">");
}

TEST(ViOutput, PromptThatDoesNotPrint) {
    Speaker s("\\033[1m$ ");
    s.wait_editing("$ ");
    expect_row(s, "abc" + kEsc, "$ abc", 4);
    s.obey("printf 'hello\\n\\033[1m# '");
    s.wait_row(0, "$ hello");
    s.wait_row(1, "# abc");
    expect_row(s, "0x", "# bc", 2);
    s.obey("printf 'more'");
    s.wait_row(1, "# morebc");
    s.type("$x\r");
    s.wait_text("<b>");
}

TEST(ViOutput, LineTooLongForTheNewPromptTakesItsOwnRow) {
    Speaker s("> ");
    s.wait_editing("> ");
    const std::string text(200, 'x'), prompt(60, 'p');
    s.type(kEsc);
    s.wait_mode(Mode::raw);
    s.type("i" + text);
    s.wait_asleep();
    s.obey("printf '\\n" + prompt + "'");
    s.wait_row(1, prompt);
    s.wait_for("the line", [&] { return s.row(2).find('<') != std::string::npos; });
    expect_row(s, kEsc + "0150x", text.substr(0, 50), 0);
    // What is printed now starts the line's own row, and the prompt has room again.
    s.obey("printf 'more '");
    s.wait_row(2, prompt + "more " + text.substr(0, 12) + ">");
    s.type("\r");
    s.wait_output("<" + text.substr(0, 50) + ">");
}

TEST(ViOutput, LineBehindASearchTextGoesOnWhenEditingEnds) {
    Speaker s("> ");
    s.wait_editing("> ");
    s.type("abc" + kEsc + "/zz");
    s.wait_row(0, "> /zz");
    s.wait_asleep();
    s.obey("stty -echo </dev/tty; printf '\\nword: '");
    s.wait_mode(Mode::pass);
    s.wait_row(1, "word:");
    EXPECT_EQ(s.row(0), ">");
    s.type("d\r");
    s.wait_text("<abcd>");
    EXPECT_EQ(s.history("sh").find("abc"), std::string::npos);
}

TEST(ViScreen, TheLineStandsAgainAfterASuspension) {
    Session s(echo("> "));
    s.wait_editing("> ");
    expect_row(s, "abc" + kEsc + "h", "> abc", 3);
    s.signal(SIGUSR2);
    s.wait_stopped();
    s.fg();
    s.wait_mode(Mode::raw);
    s.wait_asleep();
    expect_row(s, "x", "> ac", 3);
    s.type("\r");
    s.wait_text("<ac>");
}

// Within the line keys are read in bursts and shown when none is left; a last key that changes
// nothing must not leave the others unshown.
TEST(ViScreen, BurstsAreShownWhateverTheirLastKey) {
    for (const std::string last : {"q", "d", "3", "f", "r", "l", "G"}) {
        SCOPED_TRACE(last);
        Session s("vi", "printf '> '; read -r x");
        s.wait_editing("> ");
        expect_row(s, "abcdef" + kEsc + "0", "> abcdef", 2);
        s.type("xx" + last);
        s.wait_row(0, "> cdef");
        s.wait_asleep();
        EXPECT_EQ(s.cursor(), (Session::Place{0, last == "l" ? 3 : 2}));
    }
}
