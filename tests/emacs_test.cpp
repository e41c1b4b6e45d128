// emacs_test.cpp: the emacs-like editor on a pseudo-terminal in this process: keys in, the bytes
// written and the line delivered out. All keys lie in the terminal before the edit starts, so at
// the end of the line they are read one by one, within it in bursts. How the line makes way for
// program output is in e2e_emacs_test.cpp.
#include "emacs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "edit.h"
#include "history.h"
#include "main.h"
#include "pass.h"

using namespace std::string_literals;

namespace {

struct Line {
    int result;
    std::string text;    // what stands in the buffer
    std::string output;  // what was written meanwhile
};

struct Setting {
    const char *columns = "80";
    int style = kStyleEmacs;
    char erase = '\x7f';
    char kill = '\x15';
    const char *history_size = "128";
};

class EmacsTerminal {
public:
    explicit EmacsTerminal(const Setting &setting) {
        setenv("COLUMNS", setting.columns, 1);
        setenv("Q_VXHISTFILE", "", 1);
        setenv("Q_VXHISTSIZE", setting.history_size, 1);
        saved_in_ = dup(STDIN_FILENO);
        saved_err_ = dup(STDERR_FILENO);
        int out[2] = {-1, -1};
        keys_ = posix_openpt(O_RDWR | O_NOCTTY);
        if (grantpt(keys_) != 0 || unlockpt(keys_) != 0 || pipe(out) != 0) abort();
        const int slave = open(ptsname(keys_), O_RDWR | O_NOCTTY);
        termios t{};
        tcgetattr(slave, &t);
        t.c_iflag &= ~static_cast<tcflag_t>(IXON);
        t.c_cc[VERASE] = static_cast<cc_t>(setting.erase);
        t.c_cc[VKILL] = static_cast<cc_t>(setting.kill);
        for (const int signal_key : {VINTR, VQUIT, VSUSP}) t.c_cc[signal_key] = 0;
        tcsetattr(slave, TCSANOW, &t);
        Tty_original.tty_termios = t;
        dup2(slave, STDIN_FILENO);
        dup2(out[1], STDERR_FILENO);
        close(slave);
        close(out[1]);
        out_ = out[0];
        fcntl(out_, F_SETFL, O_NONBLOCK);
        edit_reset_for_test();
        emacs_reset_for_test();
        opt_flag = setting.style;
        Vesk_on = 1;
        hist_open();
        e_setraw(STDIN_FILENO);
    }
    ~EmacsTerminal() {
        hist_close_for_test();
        dup2(saved_in_, STDIN_FILENO);
        dup2(saved_err_, STDERR_FILENO);
        for (const int fd : {saved_in_, saved_err_, keys_, out_}) close(fd);
    }
    EmacsTerminal(const EmacsTerminal &) = delete;
    EmacsTerminal &operator=(const EmacsTerminal &) = delete;

    static void prompt(const std::string &text) { e_setup_prime(text.c_str()); }
    static void remember(const std::vector<std::string> &commands) {
        for (const std::string &command : commands) hist_record(command.data(), command.size());
    }
    void type(std::string_view keys) const {
        ASSERT_EQ(write(keys_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    Line read() const {
        char line[kKeyboardBuffer + 1] = {};
        line[kKeyboardBuffer] = '!';  // nobody may write here
        const int result = emacs_read(STDIN_FILENO, line, kLineCapacity);
        EXPECT_EQ(line[kKeyboardBuffer], '!');
        char bytes[16384];
        const ssize_t n = ::read(out_, bytes, sizeof bytes);
        return {result, result > 0 ? line : "", {bytes, static_cast<std::size_t>(n < 0 ? 0 : n)}};
    }
    Line read(std::string_view keys) const {
        type(keys);
        return read();
    }

private:
    int saved_in_, saved_err_, keys_ = -1, out_ = -1;
};

struct KeyCase {
    const char *name;
    std::string keys;  // a newline follows
    std::string line;
};

const std::string kUp = "\x1b[A", kRight = "\x1b[C", kLeft = "\x1b[D";

void check_lines(const Setting &setting, const std::vector<KeyCase> &cases) {
    for (const KeyCase &c : cases) {
        SCOPED_TRACE(c.name);
        EmacsTerminal terminal(setting);
        EmacsTerminal::remember({"ls", "make all", "cd\nmake", "ls -l"});
        EmacsTerminal::prompt("$ ");
        const Line got = terminal.read(c.keys + "\r");
        EXPECT_EQ(got.text, c.line + "\n");
        EXPECT_EQ(got.result, static_cast<int>(c.line.size()) + 1);
    }
}

}  // namespace

TEST(EmacsKeys, MovesAndChanges) {
    check_lines({}, {
                        {"insertion at the start", "bc\1a", "abc"},
                        {"moves stop at the ends", "b\2\2\2a\6\6\6c", "abc"},
                        {"end of line", "ab\1\5c", "abc"},
                        {"cursor keys", "ac" + kLeft + "b" + kRight + "d", "abcd"},
                        {"any key stands in for the bracket", "ac\x1bODb", "abc"},
                        {"a count for a cursor key",
                         "abcd\x1b"
                         "3" +
                             kLeft + "x",
                         "axbcd"},
                        {"digits replace a count before them",
                         "abcdef\1\x1b"
                         "4\x1b"
                         "2\6x",
                         "abxcdef"},
                        {"counts saturate",
                         "ab\x1b"
                         "99999999999999\2x",
                         "xab"},
                        {"upper case over a count",
                         "abc\1\x1b"
                         "2\3",
                         "ABc"},
                        {"delete takes no more than there is",
                         "abc\2\2\x1b"
                         "9\4",
                         "a"},
                        {"end of file is inserted nowhere", "a\1\4b", "b"},
                        {"erase by a count",
                         "abc\x1b"
                         "2\x7f",
                         "a"},
                        {"kill to the end and yank twice", "abc\2\2\x0b\x19\x19", "abcbc"},
                        {"kill with a count goes to that column",
                         "abcdef\1\x1b"
                         "4\x0b",
                         "ef"},
                        {"kill with count 0 goes to the start",
                         "abc\2\x1b"
                         "0\x0b\5\x19",
                         "cab"},
                        {"the kill character takes the whole line", "abc\2\x15x\x19", "xabc"},
                        {"transposition moves on within the line", "abc\1\x14\x14", "bca"},
                        {"transposition at the end", "abc\x14", "acb"},
                        {"search in the line",
                         "axbx\1\x1d"
                         "x|",
                         "a|xbx"},
                        {"search in the line wraps",
                         "axb\2\x1d"
                         "x|",
                         "a|xb"},
                        {"search in the line in vain", "ab\2\x1dz|", "a|b"},
                        {"region behind the cursor", "abcd\2\2\0\6\6\x17"s, "ab"},
                        {"region before the cursor", "abcd\0\2\2\x17\5\x19"s, "abcd"},
                        {"exchange with the mark",
                         "ab\0\1\x18\x18"
                         "c"s,
                         "abc"},
                        {"control keys are text", "a\x07\tb", "a\x07\tb"},
                        {"version and back", "ab\2\x16x", "axb"},
                        {"version at the end", "ab\x16\x1bx", "ab\x1bx"},
                    });
}

TEST(EmacsKeys, EscapeCommands) {
    check_lines({}, {
                        {"word right",
                         "foo bar\1\x1b"
                         "f.",
                         "foo. bar"},
                        {"two words right",
                         "foo bar\1\x1b"
                         "2\x1b"
                         "f.",
                         "foo bar."},
                        {"word right in trailing blanks",
                         "foo  \2\2\x1b"
                         "f.",
                         "foo  ."},
                        {"word left",
                         "foo bar\x1b"
                         "b.",
                         "foo .bar"},
                        {"words left past punctuation",
                         "a.b-c\x1b"
                         "2\x1b"
                         "b.",
                         "a..b-c"},
                        {"word deleted and put back",
                         "foo bar\1\x1b"
                         "d\5\x19",
                         " barfoo"},
                        {"word erased", "foo bar\x1bh!", "foo !"},
                        {"word erased by backspace", "foo bar\x1b\x08!", "foo !"},
                        {"word erased by delete", "foo bar\x1b\x7f!", "foo !"},
                        {"upper case",
                         "hello world\1\x1b"
                         "c.",
                         "HELLO. world"},
                        {"lower case",
                         "HELLO World\1\x1b"
                         "2\x1bl.",
                         "hello world."},
                        {"region copied", "ab\x1b \1\x1bp\5\x19", "abab"},
                        {"region copied, mark at the cursor",
                         "ab\x15"
                         "cd\x1b \x1bp.",
                         "cdab."},
                        {"an unbound key", "\x1bx", "\x1bx"},
                        {"an escape that quotes is obeyed again", "\x1b\x1b\x0e.", "\x1b\x1b."},
                    });
}

TEST(EmacsKeys, Quoting) {
    check_lines({}, {
                        {"erase",
                         "a\\\x7f"
                         "b",
                         "a\x7f"
                         "b"},
                        {"kill",
                         "a\\\x15"
                         "b",
                         "a\x15"
                         "b"},
                        {"control", "a\\\1b", "a\1b"},
                        {"printing keys leave it", "a\\b", "a\\b"},
                        {"newline leaves it", "a\\", "a\\"},
                        {"within the line", "ab\2\\\x0b",
                         "a\x0b"
                         "b"},
                        {"once", "\\\1\1b", "b\1"},
                    });
    check_lines({.erase = '#', .kill = '@'},
                {
                    {"printing erase", "ab#c", "ac"},
                    {"printing erase quoted", "a\\#c", "a#c"},
                    {"printing kill quoted", "a\\@c", "a@c"},
                    {"kill key is a count", "abcdefgh\x15\2.", "abcd.efgh"},
                    {"counts multiply", "abcdefghijklmnopqr\1\x15\x15\6.", "abcdefghijklmnop.qr"},
                });
}

TEST(EmacsKeys, GmacsTransposesBeforeTheCursor) {
    check_lines({.style = kStyleGmacs}, {
                                            {"within the line", "abc\2\x14", "bac"},
                                            {"at the end", "abc\x14", "acb"},
                                        });
}

TEST(EmacsKeys, History) {
    check_lines({}, {
                        {"up", "\x10", "ls -l"},
                        {"up to a line of a longer command", "\x10\x10", "make"},
                        {"up by a count",
                         "\x1b"
                         "3\x10",
                         "cd"},
                        {"up and down", kUp + kUp + "\x0e", "ls -l"},
                        {"down from the new line", "abc\2\x0e.", "ab.c"},
                        {"up past the oldest",
                         "\x1b"
                         "9\x10",
                         "ls"},
                        {"oldest", "\x1b<.", "ls."},
                        {"newest from the oldest", "\x1b<\x1b>.", "make."},
                        {"count 0 takes the line again",
                         "\x10.\x1b"
                         "0\x10",
                         "ls -l"},
                        {"search", "\x12ls\r", "ls -l"},
                        {"search again", "\x12ls\r\x12\r", "ls"},
                        {"search in the middle of a command", "\x12 al\r", "make all"},
                        {"search shows the line that matched", "\x12make\r", "make"},
                        {"search in vain", "abc\2\x12zz\r.", "abc."},
                        {"search after one in vain", "\x12ls\r\x12zz\r\x12ls\r", "ls -l"},
                        {"search given up", "abc\x12ls\x15.", "abc."},
                        {"search text corrected", "\x12lsx\x7f\x7f\x7f\x7fmak\r", "make"},
                        {"search text with a quoted newline",
                         "\x12"
                         "cd\\\rm\r",
                         "make"},
                        {"search the other way",
                         "\x12make a\r\x1b"
                         "0\x12ls\r",
                         "ls -l"},
                        {"empty search reversed",
                         "\x12make\r\x12\r\x1b"
                         "0\x12\r",
                         "make"},
                    });
}

TEST(EmacsKeys, NothingToShowChangesNothing) {
    EmacsTerminal terminal({});
    EmacsTerminal::prompt("$ ");
    const Line got = terminal.read("ab\2\x10.\r");
    EXPECT_EQ(got.text, "a.b\n");
    EXPECT_EQ(got.output, "ab\b\a.b\b\n");
}

TEST(EmacsKeys, SearchTextAndDirectionOutliveTheLine) {
    EmacsTerminal terminal({});
    EmacsTerminal::remember({"ls 1", "x", "ls 2", "y"});
    EmacsTerminal::prompt("$ ");
    EXPECT_EQ(terminal.read("\x12ls\r\r").text, "ls 2\n");
    EXPECT_EQ(terminal.read("\x12\r\x12\r\r").text, "ls 1\n");
}

TEST(EmacsKeys, OperateAndGetNextWalksOn) {
    EmacsTerminal terminal({});
    EmacsTerminal::remember({"one", "two", "three"});
    EmacsTerminal::prompt("$ ");
    const auto obey = [&](std::string_view keys) {
        const Line got = terminal.read(keys);
        EmacsTerminal::remember({got.text.substr(0, got.text.size() - 1)});
        return got.text;
    };
    EXPECT_EQ(obey("\x1b<\x0f"), "one\n");
    EXPECT_EQ(obey("\x0f"), "two\n");
    EXPECT_EQ(obey("\x19\x0f"), "threethree\n");
    EXPECT_EQ(obey("\x0f"), "one\n");
    EXPECT_EQ(obey("\r"), "two\n");
    EXPECT_EQ(obey("new\x0f"), "new\n");
    EXPECT_EQ(obey("x\r"), "x\n");
}

TEST(EmacsLimits, FullLineGoesOutAndTheKeyStays) {
    EmacsTerminal terminal({});
    EmacsTerminal::prompt("$ ");
    const Line full = terminal.read(std::string(252, 'x') + "y\r");
    EXPECT_EQ(full.result, 251);
    EXPECT_EQ(full.text, std::string(251, 'x'));
    EXPECT_EQ(terminal.read().text, "xy\n");
}

TEST(EmacsLimits, HistoryLinesAreCutToTheBuffer) {
    constexpr struct {
        int prompt, line, shown;
    } kCases[] = {{0, 300, 255},  {1, 300, 255},  {10, 300, 254}, {87, 300, 177},
                  {88, 300, 255}, {87, 177, 177}, {0, 255, 255}};
    for (const auto &c : kCases) {
        SCOPED_TRACE(std::to_string(c.prompt) + " " + std::to_string(c.line));
        EmacsTerminal terminal({.columns = "161"});
        const std::string line(static_cast<std::size_t>(c.line), 'h');
        EmacsTerminal::remember({line});
        for (const char *keys : {"\x10\r", "\x12hh\r\r"}) {
            EmacsTerminal::prompt(std::string(static_cast<std::size_t>(c.prompt), 'p'));
            EXPECT_EQ(terminal.read(keys).text,
                      line.substr(0, static_cast<std::size_t>(c.shown)) + "\n");
        }
    }
}

TEST(EmacsLimits, YankRingsWhereTheLineWouldOverflow) {
    constexpr struct {
        std::size_t prompt, killed;
        int yanks, rings;
    } kCases[] = {{0, 255, 1, 0}, {0, 128, 2, 1}, {0, 85, 3, 0}, {2, 252, 1, 0}, {2, 253, 1, 1}};
    for (const auto &c : kCases) {
        SCOPED_TRACE(std::to_string(c.prompt) + " " + std::to_string(c.killed));
        EmacsTerminal terminal({});
        const std::string killed(c.killed, 'h');
        EmacsTerminal::remember({killed});
        EmacsTerminal::prompt(std::string(c.prompt, 'p'));
        const std::string yanks(static_cast<std::size_t>(c.yanks), '\x19');
        const Line got = terminal.read("\x10\x15" + yanks + "\r");
        EXPECT_EQ(got.result, static_cast<int>(c.killed) * (c.yanks - c.rings) + 1);
        EXPECT_EQ(std::count(got.output.begin(), got.output.end(), '\a'), c.rings);
    }
}

TEST(EmacsLimits, SearchTextRingsAtItsEnd) {
    EmacsTerminal terminal({});
    EmacsTerminal::prompt("$ ");
    const Line got = terminal.read("ab\x12" + std::string(300, 's') + "\\\x7f\x7f\r.\r");
    EXPECT_EQ(got.text, "ab.\n");
    // Each key beyond 255 characters, the backslash, and the search in vain.
    EXPECT_EQ(std::count(got.output.begin(), got.output.end(), '\a'), 45 + 1 + 1);
}

TEST(EmacsLimits, PromptWithoutRoomLeavesItsRow) {
    for (const auto &[columns, length, own_row] :
         {std::tuple{"23", 19, false}, {"23", 20, true}, {"161", 87, false}, {"161", 88, true}}) {
        SCOPED_TRACE(length);
        EmacsTerminal terminal({.columns = columns});
        EmacsTerminal::prompt(std::string(static_cast<std::size_t>(length), 'p'));
        const std::string output = terminal.read("\7\r").output;
        EXPECT_EQ(output.substr(0, 1) == "\n", own_row);
    }
}

TEST(EmacsEnd, EndOfFileOnAnEmptyLineOnly) {
    EmacsTerminal terminal({});
    EmacsTerminal::prompt("$ ");
    const Line end = terminal.read("a\x7f\4");
    EXPECT_EQ(end.result, 0);
    EXPECT_EQ(end.output, "a\b \b");
}

TEST(EmacsEnd, SignalEndsTheEditAndTheNextStartsOnANewRow) {
    EmacsTerminal terminal({});
    EmacsTerminal::prompt("$ ");
    progdone = SIGINT;
    EXPECT_EQ(terminal.read().result, 0);
    progdone = 0;
    EXPECT_EQ(terminal.read("a_\r").output, "\n$ a \b_\n");
}

struct DrawCase {
    const char *name;
    const char *columns;
    std::string prompt;
    std::string keys;    // a newline follows
    std::string output;  // up to the newline
};

static void check_output(const std::vector<DrawCase> &cases) {
    for (const DrawCase &c : cases) {
        SCOPED_TRACE(c.name);
        EmacsTerminal terminal({.columns = c.columns});
        EmacsTerminal::remember({"ls -l"});
        EmacsTerminal::prompt(c.prompt);
        EXPECT_EQ(terminal.read(c.keys + "\r").output, c.output + "\n");
    }
}

TEST(EmacsDraw, WritesWhatDiffers) {
    const std::string move = "0123456789abcdefghijklmnopqrstuvwxyz";
    check_output({
        {"typing at the end is echoed", "80", "$ ", "ls", "ls"},
        {"an underscore overstrikes a blank", "80", "$ ", "a_", "a \b_"},
        {"a burst within the line is drawn once", "80", "$ ", "bc\1aa", "bc\r$ aabc\b\b"},
        {"left by backspaces", "80", "$ ",
         move + "\x1b"
                "12\2",
         move + std::string(12, '\b')},
        {"left by a carriage return", "80", "$ ",
         move + "\x1b"
                "19\2",
         move + "\r$ " + move.substr(0, 17)},
        {"right by writing again", "80", "$ ", "abc\1\5", "abc\r$ abc"},
        {"a control character takes two columns", "80", "$ ", "a\7b\2\2", "a^Gb\b\b\b"},
        {"a tab runs to the next stop", "80", "$ ", "a\tb", "a     b"},
        {"erasing blanks", "80", "$ ", "ab\x7f", "ab\b \b"},
        {"bell without a change", "80", "$ ", "a\x14", "a\a"},
        {"a quoted printing key overwrites the backslash", "80", "$ ", "\\\1", "\\\b^A"},
        {"refresh takes a new row", "80", "$ ", "ab\x0c", "ab\n$ ab"},
        {"search text", "80", "$ ", "\x12ls\r", "^Rls\r$ ls -l"},
        {"quoted key of the search text", "80", "$ ", "\x12\\l\r", "^R\\\bl\r$ ls -l"},
        {"kill twice leaves the line standing", "80", "$ ", "ab\x15\x15x", "ab\r$   \r$ \r\nx"},
        {"then each killed line", "80", "$ ",
         "\x15\x15"
         "ab\x15"
         "c",
         "\r\nab\r$   \r$ \r\nc"},
    });
}

TEST(EmacsDraw, WindowAndMarker) {
    const std::string blank(20, ' '), alphabet = "abcdefghijklmnopqrstuvwxyz";
    const auto left = [&](std::size_t n) { return alphabet.substr(0, n); };
    const std::string scrolled = left(17) + "\rijklmnopqr" + blank.substr(10) + "<\rijklmnopqr";
    check_output({
        {"the window jumps", "23", "$ ", left(18), scrolled},
        {"and jumps back to the prompt", "23", "$ ", left(18) + "\1",
         scrolled + "\r$ " + left(18) + " \r$ "},
        {"text to the right", "23", "$ ", left(18) + "\1X",
         scrolled + "\r$ " + left(18) + " \r$ X" + left(17) + ">\r$ X"},
        {"only backspaces behind a prompt that can't be shown again", "23", "\x1b[1m$ ", "bc\1a",
         "bc\b\babc\b\b"},
        {"which goes when the window jumps", "23", "\x1b[1m$ ", left(14),
         left(13) + "\refghijklmn" + blank.substr(10) + "<\refghijklmn"},
        {"and comes back with a refresh", "23", "\x1b[1m$ ", "a\x0c", "a\n\x1b[1m$ a"},
        {"a prompt that would push the cursor out", "23", std::string(15, 'p'), left(5),
         left(4) + "\rabcde" + blank.substr(6) + "\rabcde"},
        {"a prompt as wide as the window", "23", std::string(20, 'p'), "ab\2", "\nab\ra"},
    });
}
