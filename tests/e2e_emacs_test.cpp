// e2e_emacs_test.cpp: the emacs-like editor in the whole program: what the screen shows when output
// arrives in each of the editor's waits, when keys come in bursts, when the window has moved. The
// commands one by one are in emacs_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <string_view>
#include <vector>

#include "harness/session.h"

using namespace std::string_literals;
using harness::Mode;
using harness::Options;

// A program that reads lines, while a part of it in the background obeys what the test writes.
class Talker : public Session {
public:
    explicit Talker(const std::string &prompt)
        : Session(Options{
              .program = {"sh", "-c",
                          "mkfifo \"$HOME/do\"; (while :; do . \"$HOME/do\"; done) & printf '" +
                              prompt + "'; while read -r x; do printf '<%s>\\n" + prompt +
                              "' \"$x\"; done"},
              .env = {{"COLUMNS", "80"}},
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

struct AsideCase {
    const char *name;
    std::string before;  // keys, after which the editor waits
    std::string shown;   // the line as shown then, without its prompt
    int column;          // of the cursor, prompt not counted
    std::string after;   // further keys
    std::string line;    // what the program gets
};

static const std::vector<AsideCase> kAsideCases = {
    {"at the end of the line", "abc", "abc", 3, "d\r", "abcd"},
    {"within the line", "abc\2\2", "abc", 1, "x\r", "axbc"},
    {"an empty line", "a\x7f", "", 0, "b\r", "b"},
    {"control characters", "a\7_\t", "a^G_", 6, "b\r", "a\7_\tb"},
    {"mark and kill buffer",
     "xyz\1\x0b"
     "abcd\1\0\6\6"s,
     "abcd", 2, "\x17\x18\x18\x19\r", "abcd"},
    {"a count",
     "abcd\x1b"
     "3",
     "abcd", 4, "\2x\r", "axbcd"},
    {"escape", "ab cd\x1b", "ab cd", 5, "bx\r", "ab xcd"},
    {"escape and a key",
     "ab cd\x1b"
     "b",
     "ab cd", 5, "x\r", "ab xcd"},
    {"exchange with the mark", "ab\0\1\x18"s, "ab", 0,
     "\x18"
     "c\r",
     "abc"},
    {"search in the line", "axb\1\x1d", "axb", 0, "x.\r", "a.xb"},
    {"a quote", "ab\2\\", "a\\b", 2, "\1\r", "a\1b"},
    {"a search text", "ab\x12zz", "^Rzz", 4, "\r.\r", "ab."},
    {"a search text with a quote", "ab\x12z\\", "^Rz\\", 4, "\x7f\r.\r", "ab."},
    {"a search text given up", "ab\2\x12z", "^Rz", 3, "\x15.\r", "ab."},
    {"behind the kill character", "ab\x15", "", 0, "c\r", "c"},
};

static void check_aside(const AsideCase &c, const std::string &prompt) {
    Talker s("> ");
    s.wait_editing("> ");
    s.type(c.before);
    s.wait_row(0, ("> " + c.shown).substr(0, c.shown.empty() ? 1 : std::string::npos));
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

TEST(EmacsOutput, EveryWaitMakesWayAndGoesOn) {
    for (const AsideCase &c : kAsideCases) {
        SCOPED_TRACE(c.name);
        check_aside(c, "> ");
    }
}

// All positions move when the prompt gets another length.
TEST(EmacsOutput, LineFollowsALongerPrompt) {
    for (const AsideCase &c : kAsideCases) {
        if (c.before.find('\t') != std::string::npos) continue;  // its stops move as well
        SCOPED_TRACE(c.name);
        check_aside(c, "a longer prompt> ");
    }
}

TEST(EmacsOutput, VersionTextMakesWay) {
    Talker s("> ");
    s.wait_editing("> ");
    s.type("abc\2\x16");
    s.wait_text("> morp");
    s.wait_asleep();
    const std::string version = s.row(0);
    s.obey("printf 'hello\\n> '");
    s.wait_row(0, "> hello");
    s.wait_row(1, version);
    s.type("x\r");
    s.wait_text("<abxc>");
}

TEST(EmacsOutput, PiecesWithoutALineEndBecomeThePrompt) {
    Talker s("> ");
    s.wait_editing("> ");
    s.type("abc");
    s.wait_editing("> abc");
    s.obey("printf 'wait... '");
    s.wait_editing("> wait... abc");
    s.type("\1x");
    s.wait_row(0, "> wait... xabc");
    s.obey("printf '\\r\\033[Kdone> '");
    s.wait_row(0, "done> xabc");
    s.type("y\r");
    s.wait_text("<xyabc>");
}

TEST(EmacsOutput, MovedWindowGivesThePromptBack) {
    Talker s("> ");
    s.wait_editing("> ");
    const std::string text(100, 'x');
    s.type(text);
    s.wait_for("the marker", [&] { return s.row(0).find('<') != std::string::npos; });
    s.obey("printf 'hello\\n> '");
    s.wait_row(0, "> hello");
    s.wait_for("the marker", [&] { return s.row(1).find('<') != std::string::npos; });
    s.type("\1");
    s.wait_row(1, "> " + text.substr(0, 75) + ">");
    EXPECT_EQ(s.row(0), "> hello");
    s.type("\r");
    s.wait_output("<" + text + ">");
}

TEST(EmacsOutput, PromptThatIsGoneLeavesAnEmptyRow) {
    Talker s("\\033[1m$ ");
    s.wait_editing("$ ");
    const std::string text(100, 'x');
    s.type(text);
    s.wait_for("the marker", [&] { return s.row(0).find('<') != std::string::npos; });
    s.obey("printf 'hello\\n> '");
    s.wait_row(0, "hello");
    s.type("\r");
    s.wait_output("<" + text + ">");
}

TEST(EmacsOutput, LineTooLongForTheNewPromptTakesItsOwnRow) {
    Talker s("> ");
    s.wait_editing("> ");
    const std::string text(200, 'x'), prompt(60, 'p');
    s.type(text);
    s.wait_asleep();
    s.obey("printf '\\n" + prompt + "'");
    s.wait_row(1, prompt);
    s.wait_for("the line", [&] { return s.row(2).find('<') != std::string::npos; });
    // What is printed now starts the line's own row; the long prompt is not on it.
    s.obey("printf 'more '");
    s.type("\1");
    s.wait_row(2, "more " + text.substr(0, 72) + ">");
    s.type("\r");
    s.wait_output("<" + text + ">");
}

TEST(EmacsOutput, LineBehindASearchTextGoesOnWhenEditingEnds) {
    Talker s("> ");
    s.wait_editing("> ");
    s.type("abc\x12zz");
    s.wait_editing("^Rzz");
    s.obey("stty -echo </dev/tty; printf '\\nword: '");
    s.wait_mode(Mode::pass);
    s.wait_row(1, "word:");
    EXPECT_EQ(s.row(0), ">");
    s.type("d\r");
    s.wait_text("<abcd>");
    EXPECT_EQ(s.history("sh").find("abc"), std::string::npos);
}

TEST(EmacsScreen, LongLineKeepsItsCursorInTheWindow) {
    Options options{.program = {"sh", "-c", "printf '> '; read -r x; printf \"<${#x}>\""},
                    .env = {{"COLUMNS", "23"}}};
    Session s(options);
    s.wait_editing("> ");
    s.type("0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJ");
    s.wait_row(0, "stuvwxyzABCDEFGHIJ  <");
    s.type(
        "\x1b"
        "20\2");
    s.wait_row(0, "ghijklmnopqrstuvwxyz*");
    EXPECT_EQ(s.cursor(), (Session::Place{0, 10}));
    s.type(
        "\x1b"
        "20\2");
    s.wait_row(0, "> 0123456789abcdefgh>");
    s.type("\5\r");
    s.wait_text("<46>");
}

TEST(EmacsScreen, SignalDropsTheLineAndThePromptStandsAgain) {
    Session s("emacs", "trap '' INT; printf '> '; read -r x; printf \"<$x>\"");
    s.wait_editing("> ");
    s.type("abc");
    s.wait_editing("> abc");
    s.type("\x03");
    s.wait_asleep();
    s.type("x");
    s.wait_row(1, "> x");
    EXPECT_EQ(s.row(0), "> abc");
    s.type("\r");
    s.wait_text("<x>");
}

TEST(EmacsHistory, OperateAndGetNextAcrossTheProgram) {
    Session s(Options{.program = {"actor", "echo", "> "}});
    for (const char *line : {"one", "two", "three"}) {
        s.wait_editing("> ");
        s.type(line + "\r"s);
        s.wait_text("<"s + line + ">");
    }
    s.wait_editing("> ");
    s.type("\x10\x10\x10");
    s.wait_editing("> one");
    // Each edit starts, and fetches its line, with its first key.
    s.type("\x0f");
    s.wait_row(7, "<one>");
    s.wait_editing("> ");
    s.type("\x0f");
    s.wait_row(9, "<two>");
    s.wait_editing("> ");
    s.type("!\r");
    s.wait_row(11, "<three!>");
    EXPECT_NE(s.history("actor").find("three!\n"), std::string::npos);
}
