// vi_test.cpp: the vi-like editor on a pseudo-terminal in this process: keys in, the bytes written
// and the line delivered out. The keys lie in the terminal before the edit starts; at the end of
// the line they are read one by one, within it in bursts. How the line makes way for program
// output, and the change from the driver's part to the editor's, are also in e2e_vi_test.cpp.
#include "vi.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "edit.h"
#include "harness/screen.h"
#include "history.h"
#include "main.h"
#include "pass.h"
#include "vi/vi_internal.h"

using namespace std::string_literals;

namespace {

const std::string kEsc = "\x1b";
constexpr const char *kHuge = "99999999999";

struct Line {
    int result;
    std::string text;    // what stands in the buffer
    std::string output;  // what was written meanwhile
};

class ViTerminal {
public:
    explicit ViTerminal(const char *columns = "80") {
        setenv("COLUMNS", columns, 1);
        setenv("Q_VXHISTFILE", "", 1);
        setenv("Q_VXHISTSIZE", "128", 1);
        saved_in_ = dup(STDIN_FILENO);
        saved_err_ = dup(STDERR_FILENO);
        int out[2] = {-1, -1};
        keys_ = posix_openpt(O_RDWR | O_NOCTTY);
        if (grantpt(keys_) != 0 || unlockpt(keys_) != 0 || pipe(out) != 0) abort();
        const int slave = open(ptsname(keys_), O_RDWR | O_NOCTTY);
        termios t{};
        tcgetattr(slave, &t);
        t.c_iflag &= ~static_cast<tcflag_t>(IXON);
        t.c_cc[VERASE] = 0x7f;
        t.c_cc[VKILL] = 0x15;
        t.c_cc[VLNEXT] = 0;  // so that the driver leaves ^V in the line
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
        vi_reset_for_test();
        opt_flag = kStyleVi;
        Vesk_on = 1;
        hist_open();
    }
    ~ViTerminal() {
        hist_close_for_test();
        dup2(saved_in_, STDIN_FILENO);
        dup2(saved_err_, STDERR_FILENO);
        for (const int fd : {saved_in_, saved_err_, keys_, out_}) close(fd);
    }
    ViTerminal(const ViTerminal &) = delete;
    ViTerminal &operator=(const ViTerminal &) = delete;

    static void prompt(const std::string &text) { e_setup_prime(text.c_str()); }
    static void remember(const std::vector<std::string> &commands) {
        for (const std::string &command : commands) hist_record(command.data(), command.size());
    }
    void type(std::string_view keys) const {
        ASSERT_EQ(write(keys_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    // A line of which the driver has a part.
    Line read_cooked(std::string_view keys) const {
        e_setalt(STDIN_FILENO);
        type(keys);
        return read();
    }
    // A line that begins in raw input mode, as with keys typed ahead.
    Line read(std::string_view keys) const {
        e_setalt(STDIN_FILENO);
        e_setraw(STDIN_FILENO);
        type(keys.substr(1));
        e_ungetchar(byte_of(keys[0]));
        return read();
    }
    std::string written() const {
        char bytes[32768];
        const ssize_t n = ::read(out_, bytes, sizeof bytes);
        return {bytes, static_cast<std::size_t>(n < 0 ? 0 : n)};
    }

private:
    Line read() const {
        char line[kKeyboardBuffer + 1] = {};
        line[kKeyboardBuffer] = '!';  // nobody may write here
        const int result =
            vi_read(STDIN_FILENO, reinterpret_cast<unsigned char *>(line), kLineCapacity);
        EXPECT_EQ(line[kKeyboardBuffer], '!');
        return {result, result > 0 ? std::string(line, static_cast<std::size_t>(result)) : "",
                written()};
    }

    int saved_in_, saved_err_, keys_ = -1, out_ = -1;
};

struct KeyCase {
    const char *name;
    std::string keys;  // in input mode; a newline follows
    std::string line;
};

const std::vector<std::string> kHistory = {"ls -l", "make all", "cd\nmake", "cp -r src dest"};

void check_lines(const std::vector<KeyCase> &cases) {
    for (const KeyCase &c : cases) {
        SCOPED_TRACE(c.name);
        ViTerminal terminal;
        ViTerminal::remember(kHistory);
        ViTerminal::prompt("$ ");
        const Line got = terminal.read(c.keys + "\r");
        EXPECT_EQ(got.text, c.line + "\n");
    }
}

std::string repeated(std::string_view text, std::size_t times) {
    std::string all;
    for (; times > 0; --times) all += text;
    return all;
}

std::string blanks(std::size_t n) { return std::string(n, ' '); }

}  // namespace

TEST(ViInput, Keys) {
    check_lines({
        {"erase and ^H",
         "abX\x7f"
         "cX\b",
         "abc"},
        {"erase at the start rings only",
         "\x7f\x7f"
         "a",
         "a"},
        {"erase stops where the insertion began", "ab" + kEsc + "iX\x7f\x7f\x7f", "ab"},
        {"kill",
         "abc\x15"
         "d",
         "d"},
        {"kill takes what was there before too",
         "abc" + kEsc +
             "iX\x15"
             "d",
         "d"},
        {"word erase", "one two-three\x17\x17x", "one x"},
        {"word erase after blanks takes one", "one  \x17.", "one ."},
        {"word erase stops where the insertion began", "ab cd" + kEsc + "aef\x17\x17", "ab cd"},
        {"a backslash quotes erase", "a\\\x7f", "a\x7f"},
        {"a backslash quotes kill", "a\\\x15", "a\x15"},
        {"^V quotes any key", "a\x16\x1b\x16\x04\x16\x16\x16\x7f", "a\x1b\x04\x16\x7f"},
        {"end of file inside a line is nothing",
         "a\x04"
         "b",
         "ab"},
        {"bytes above 127",
         "caf\xc3\xa9\x7f\x7f"
         "e",
         "cafe"},
        {"a newline in the middle takes all", "abc" + kEsc + "0iX", "Xabc"},
    });
}

TEST(ViInput, Overwriting) {
    check_lines({
        {"in place", "abcdef" + kEsc + "0lRXY", "aXYdef"},
        {"past the end it inserts", "abc" + kEsc + "hRXYZ", "aXYZ"},
        {"on an empty line it inserts", kEsc + "Rab", "ab"},
        {"erase steps back and leaves the text", "abcdef" + kEsc + "0lRXY\x7f\x7f\x7f\x7fZ",
         "aZYdef"},
        {"a quoted key overwrites", "abcdef" + kEsc + "0R\x16\x01\x16\x02",
         "\x01\x02"
         "cdef"},
        {"over characters of two columns", "a\x16\x01\x16\x02" + kEsc + "0lRxyz", "axyz"},
        {"the cursor goes back with escape", "abcdef" + kEsc + "0RXY" + kEsc + "x", "Xcdef"},
        {"repeated, it inserts", "abcdef" + kEsc + "0RXY" + kEsc + "$.", "XYcdeXYf"},
    });
}

TEST(ViCommand, Motions) {
    // Each stands on its character and takes it.
    const std::string text = "  one two-three, four_5  six" + kEsc;
    check_lines({
        {"h", text + "hhx", "  one two-three, four_5  ix"},
        {"^H with a count", text + "2\bx", "  one two-three, four_5  ix"},
        {"h is held at the start", text + kHuge + "hx", " one two-three, four_5  six"},
        {"l and blank", text + "0l x", "  ne two-three, four_5  six"},
        {"l is held at the end", text + "0" + kHuge + "lx", "  one two-three, four_5  si"},
        {"0 and ^", text + "0^x", "  ne two-three, four_5  six"},
        {"^ on blanks goes to the end", "   " + kEsc + "0^iX", "  X "},
        {"$", text + "0$x", "  one two-three, four_5  si"},
        {"w stops at punctuation", text + "0www" + "x", "  one twothree, four_5  six"},
        {"w splits at the underscore", text + "07wx", "  one two-three, four5  six"},
        {"W", text + "03Wx", "  one two-three, our_5  six"},
        {"w is held at the end", text + "0" + kHuge + "wx", "  one two-three, four_5  si"},
        {"b", text + "3bx", "  one two-three, four5  six"},
        {"B", text + "2Bx", "  one two-three, our_5  six"},
        {"b is held at the start", text + kHuge + "bx", " one two-three, four_5  six"},
        {"e", text + "03ex", "  one twothree, four_5  six"},
        {"E", text + "02Ex", "  one two-three four_5  six"},
        {"e is held at the end", text + "0" + kHuge + "ex", "  one two-three, four_5  si"},
        {"f", text + "03fex", "  one two-thre, four_5  six"},
        {"f that is not there stays", text + "09fex", " one two-three, four_5  six"},
        {"F", text + "2Fex", "  one two-thre, four_5  six"},
        {"t", text + "0ttx", "  onetwo-three, four_5  six"},
        {"T", text + "Tox", "  one two-three, for_5  six"},
        {"; goes on, , comes back", text + "0fo;;,x", "  one tw-three, four_5  six"},
        {"; after t stays", text + "0tt;;x", "  onetwo-three, four_5  six"},
        {"; after F goes back", text + "Fe;x", "  one two-thre, four_5  six"},
        {"; before any find rings", "abc" + kEsc + ";x", "ab"},
        {"the find outlives the line, not its deletion",
         "xbcxb" + kEsc + "0fxccaxbx" + kEsc + "0;x", "xbx"},
        {"arrows", text + "0" + kEsc + "[C" + kEsc + "[C" + kEsc + "[Dx",
         " one two-three, four_5  six"},
        {"a broken sequence takes its keys", text + kEsc + "xx" + kEsc + "[xx",
         "  one two-three, four_5  s"},
    });
}

TEST(ViCommand, DeletingChangingYanking) {
    check_lines({
        {"x with a count", "abcdef" + kEsc + "0l3x", "aef"},
        {"x past the end", "abc" + kEsc + "h" + kHuge + "x", "a"},
        {"X", "abcdef" + kEsc + "2X", "abcf"},
        {"X at the start changes nothing", "abc" + kEsc + "0XiY", "Yabc"},
        {"dh at the start changes nothing", "abc" + kEsc + "0dhiY", "Yabc"},
        {"dw", "one two" + kEsc + "0dw", "two"},
        {"dw on the last word", "one two" + kEsc + "bdw", "one "},
        {"counts multiply", "a b c d e f g h" + kEsc + "02d3w", "g h"},
        {"counts saturate", "abc" + kEsc + "0" + kHuge + "d" + kHuge + "l", ""},
        {"db takes the character under the cursor", "one two" + kEsc + "db", "one "},
        {"de", "one two" + kEsc + "0de", " two"},
        {"d$ and D", "one two" + kEsc + "03ld$bD", ""},
        {"d0", "one two" + kEsc + "0wd0", "wo"},
        {"d^", "  one two" + kEsc + "d^", "  "},
        {"dfx", "abxcd" + kEsc + "0dfx", "cd"},
        {"dtx", "abxcd" + kEsc + "0dtx", "xcd"},
        {"dFx", "abxcd" + kEsc + "dFx", "ab"},
        {"d; before any find fails", "abc" + kEsc + "d;", "abc"},
        {"dj fails", "abc" + kEsc + "dj", "abc"},
        {"d ESC and a key fail", "abc" + kEsc + "d" + kEsc + "x", "abc"},
        {"d and an arrow", "abcd" + kEsc + "0d" + kEsc + "[C", "cd"},
        {"dd", "abc" + kEsc + "dd", ""},
        {"dd then p brings it back", "abc" + kEsc + "ddp", "abc"},
        {"cw keeps the blanks", "one   two" + kEsc + "0cwX", "X   two"},
        {"cc, S, C", "abc" + kEsc + "ccdef" + kEsc + "Sghi" + kEsc + "0lCX", "gX"},
        {"c0", "abcd" + kEsc + "hc0X", "Xd"},
        {"cj fails", "abc" + kEsc + "cjx", "ab"},
        {"s with a count", "abcdef" + kEsc + "0l2sXYZ", "aXYZdef"},
        {"s past the end", "abc" + kEsc + "h9sX", "aX"},
        {"yw and P", "one two" + kEsc + "0ywP", "one one two"},
        {"yb leaves the cursor", "one two" + kEsc + "ybiX", "one twXo"},
        {"y$, Y, yy", "ab" + kEsc + "0Yp$y$p0yyP", "aabbbaabbb"},
        {"p at the end, with a count", "ab" + kEsc + "yy2p", "ababab"},
        {"P leaves the cursor on the last", "ab" + kEsc + "yyPiX", "aaXbb"},
        {"erased keys can be put", "ab\x7f" + kEsc + "p", "ab"},
        {"p with nothing yanked rings", "a" + kEsc + "pP", "a"},
        {"commands on an empty line", kEsc + "xXDdwdbdh~rxYhlwbe$^0fx;uUia", "a"},
    });
}

TEST(ViCommand, OtherChanges) {
    check_lines({
        {"a A i I", "bc" + kEsc + "ae" + kEsc + "hiX" + kEsc + "I<" + kEsc + "A>", "<bXce>"},
        {"i at the start", "b" + kEsc + "ia", "ab"},
        {"i before a control character", "a\x16\x01" + kEsc + "iX", "aX\x01"},
        {"r takes no count", "abc" + kEsc + "03rX", "Xbc"},
        {"r with a key that does not print", "abc" + kEsc + "0r\x01",
         "\x01"
         "bc"},
        {"r on the last", "abc" + kEsc + "rX", "abX"},
        {"~ moves on and takes no count", "aBc1d" + kEsc + "03~~~~~", "AbC1D"},
        {"_ takes the last word", "x" + kEsc + "_!", "x dest!"},
        {"_ with a count", "x" + kEsc + "2_!", "x -r!"},
        {"_ with too high a count", "x" + kEsc + kHuge + "_!", "x dest!"},
        {"# makes a comment", "abc" + kEsc + "#", "#abc"},
        {"# on an empty line", kEsc + "#", ""},
        {"u", "abc" + kEsc + "xxu", "ab"},
        {"u twice", "abc" + kEsc + "xxuu", "a"},
        {"u before a change rings", "abc" + kEsc + "u", "abc"},
        {"u puts the cursor back", "abc" + kEsc + "0lxuiX", "aXbc"},
        {"u after P", "abc" + kEsc + "yyhPuiX", "aXbc"},
        {"U", "abc" + kEsc + "xxiX" + kEsc + "U", "abc"},
        {"u takes U back", "abc" + kEsc + "xxUu", "a"},
        {"u after kill in input mode", "abc" + kEsc + "0iX\x15" + kEsc + "u", "Xabc"},
        {"u after kill before the first character", "abc" + kEsc + "0i\x15" + kEsc + "ux", "bc"},
        {"unknown keys ring", "abc" + kEsc + "qvzZQ@!&x", "ab"},
    });
}

TEST(ViCommand, Repeating) {
    check_lines({
        {"x with its count", "abcdefgh" + kEsc + "02x.", "efgh"},
        {"a new count stays", "abcdefghij" + kEsc + "0x3..", "hij"},
        {"a count with a motion resets it", "abcdefghij" + kEsc + "03x2l.", "defghij"s.erase(2, 1)},
        {"a", "a" + kEsc + "ab" + kEsc + "2.", "abbb"},
        {"i", "x" + kEsc + "iab" + kEsc + "$.", "ababx"},
        {"A and I", "m" + kEsc + "A>" + kEsc + "0." + "I<" + kEsc + "$.", "<<m>>"},
        {"cw", "one two" + kEsc + "0cwX" + kEsc + "w.", "X X"},
        {"s", "abcd" + kEsc + "0sX" + kEsc + "l.", "XXcd"},
        {"C leads into input mode", "ab cd" + kEsc + "0wCX" + kEsc + "0.Y", "Y"},
        {"S leads into input mode", "ab" + kEsc + "SX" + kEsc + ".Y", "Y"},
        {"dfx takes the same character", "axbxcx" + kEsc + "0dfx.", "cx"},
        {"r", "abc" + kEsc + "0rXl.", "XXc"},
        {"~", "abc" + kEsc + "0~.", "ABc"},
        {"p", "ab" + kEsc + "yyp.", "ababab"},
        {"dd leaves nothing to do", "ab" + kEsc + "dd.", ""},
        {"the first insertion", "ab" + kEsc + ".", "aabb"},
    });
}

TEST(ViCommand, WhatOutlivesTheLine) {
    ViTerminal terminal;
    EXPECT_EQ(terminal.read("a,b" + kEsc + "0f,x\r").text, "ab\n");
    EXPECT_EQ(terminal.read("x,y" + kEsc + "0;p\r").text, "x,,y\n");
    EXPECT_EQ(terminal.read("cd" + kEsc + "0.\r").text, "c,d\n");
}

TEST(ViHistory, MovesAndSearches) {
    check_lines({
        {"k", kEsc + "k", "cp -r src dest"},
        {"k, - and up arrow", kEsc + "k-" + kEsc + "[A", "make all"},
        {"k with a count, then j", kEsc + "3kj", "cd\nmake"},
        {"+ and down arrow", kEsc + "4k+" + kEsc + "[B", "cd\nmake"},
        {"k past the oldest stays", "ab" + kEsc + "9k", "ab"},
        {"and leaves undo alone", "abc" + kEsc + "x09kuiX", "abXc"},
        {"and j goes on from the oldest", "ab" + kEsc + "9kj", "make all"},
        {"j brings the line back", "ab cd" + kEsc + "0wkjiX", "ab Xcd"},
        {"an empty line too", kEsc + "kj", ""},
        {"j past the newest rings and brings it back", "ab" + kEsc + "kk9j", "ab"},
        {"and it is still there for k and j", "ab" + kEsc + "k9jkj", "ab"},
        {"j on the newest rings", "ab" + kEsc + "j", "ab"},
        {"G", kEsc + "G", "ls -l"},
        {"G with a number", kEsc + "2G", "make all"},
        {"G out of reach", "ab" + kEsc + "9G", "ab"},
        {"G keeps the line", "ab" + kEsc + "Gjjjj", "ab"},
        {"G back to the line", "ab" + kEsc + "2G5G", "ab"},
        {"/", kEsc + "/ma\r", "cd\nmake"},
        {"/ and n", kEsc + "/ma\rn", "make all"},
        {"n keeps to its text", kEsc + "/ma\rnn", "make all"},
        {"N turns round", kEsc + "/ma\rnN", "cd\nmake"},
        {"/ without text repeats", kEsc + "/ma\r/\r", "make all"},
        {"n without a search goes one back", "x" + kEsc + "n", "cp -r src dest"},
        {"? begins with the second oldest", kEsc + "?a\r", "make all"},
        {"? goes on", kEsc + "?a\rn", "cd\nmake"},
        {"a failing search leaves the line", "ab" + kEsc + "/zz\riX", "aXb"},
        {"n on an empty line", kEsc + "nNia", "a"},
        {"erasing the / gives up", "ab" + kEsc + "/x\x7f\x7fiX", "aXb"},
        {"and brings back the empty line", kEsc + "/\x7fia", "a"},
        {"kill keeps the /", kEsc + "/zz\x15ls\r", "ls -l"},
        {"kill with no text", kEsc + "/\x15ls\r", "ls -l"},
        {"kill leaves undo alone", "ab" + kEsc + "/zz\x15zz\r", "ab"},
        {"word erase and escape in the text", kEsc + "/x ls y\x17\x17" + kEsc + "\x15ls\r",
         "ls -l"},
        {"search keeps the line for j", "ab" + kEsc + "/ls\rjjjj", "ab"},
        {"search for nothing arrives at the line", "ab" + kEsc + "k?\r", "ab"},
        {"editing a recalled line", kEsc + "kcwmv", "mv -r src dest"},
        {"u after k brings the line before", "ab" + kEsc + "ku", "ab"},
        {"leaving command mode starts anew", "ab" + kEsc + "kka" + kEsc + "j", "cd\nmake"},
    });
}

// The first refresh after the prompt clears the whole row: 75 columns behind "$ ", and the
// marker's.
static std::string first_refresh(const std::string &text) {
    return text + std::string(76 - text.size(), ' ') + "\r$ " + text;
}

struct ByteCase {
    const char *name;
    std::string keys;
    std::string output;  // from the prompt to the newline of the line's end
};

TEST(ViDisplay, BytesPerKey) {
    const std::string abc = first_refresh("a") + "bc";
    const std::vector<ByteCase> cases = {
        {"typing", "abc", abc},
        {"erase", "abc\x7f", abc + "\b \b"},
        {"underscore is overstruck", "a_", first_refresh("a") + " \b_"},
        {"escape goes onto the last character", "abc" + kEsc, abc + "\b"},
        {"a failing motion rings", "abc" + kEsc + "l", abc + "\b\a"},
        {"left by backspaces, right by writing", "abc" + kEsc + "hl", abc + "\b\bb"},
        {"left as far by backspaces as they are not longer than the prompt's way",
         "abc" + kEsc + "0", abc + "\b\b\b"},
        {"far left by the prompt", "abcd" + kEsc + "0", abc + "d\b\r$ "},
        {"x on the last", "abc" + kEsc + "x", abc + "\b \b\b"},
        {"a and i", "abc" + kEsc + "a" + kEsc + "i", abc + "\bc\b"},
        {"replacing writes one character", "abc" + kEsc + "hrX", abc + "\b\bX\b"},
        {"on the last the line is refreshed", "abc" + kEsc + "rX", abc + "\bX\b"},
        {"case toggled in place", "abc" + kEsc + "0~", abc + "\b\b\bA"},
        {"end of file inside writes nothing", "abc\x04", abc},
        {"full redraw", "abc" + kEsc + "\f", abc + "\b\n\r$ abc\b"},
        {"a control character takes two columns", "a\x16\x01" + kEsc + "h",
         first_refresh("a") + "^A\b\b\b"},
        {"i before one steps over it", "a\x16\x01" + kEsc + "i", first_refresh("a") + "^A\bA\b\b"},
        {"a tab runs to its stop", "a\t" + kEsc, first_refresh("a") + "       \b"},
        {"kill blanks the row", "ab\x15", first_refresh("a") + "b\b\b  \b\b"},
        {"history shows only what differs", "ls -a" + kEsc + "k",
         first_refresh("l") + "s -a\bl\r$ "},
    };
    for (const ByteCase &c : cases) {
        SCOPED_TRACE(c.name);
        ViTerminal terminal;
        ViTerminal::remember({"ls -l"});
        ViTerminal::prompt("$ ");
        const Line got = terminal.read(c.keys + "\r");
        EXPECT_EQ(got.output, "\r$ " + c.output + "\n");
    }
}

// A line of 18 characters and one of 19 in a window of 18 columns; no prompt, so that the window is
// as narrow as it gets.
TEST(ViDisplay, WindowAndMarkers) {
    const struct {
        const char *name;
        std::string keys, row;
        int col;
    } cases[] = {
        {"fits", "abcdefghijklmnopqr", "abcdefghijklmnopqr", 18},
        {"one more scrolls by half", "abcdefghijklmnopqrs", "jklmnopqrs        <", 10},
        {"from its start", "abcdefghijklmnopqrs" + kEsc + "0", "abcdefghijklmnopqr>", 0},
        {"more on both sides", repeated("abcdefghij", 5) + kEsc + "024l", "fghijabcdefghijabc*", 9},
        {"equal characters shortened to fit", std::string(19, 'x') + kEsc + "0x",
         std::string(18, 'x'), 0},
        {"overwriting in the last column", "abcdefghijklmnopqrs" + kEsc + "017l~",
         "jklmnopqRs        <", 9},
        {"overwriting a control character", "a\x16\x01z" + kEsc + "0lrx", "axz", 1},
        {"shortened to fit", "abcdefghijklmnopqrs" + kEsc + "0x", "bcdefghijklmnopqrs", 0},
        {"a tab across the edge", "abcdefghijklmnop\tz" + kEsc, "op        z       <", 10},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ViTerminal terminal("20");
        ViTerminal::prompt("\n");
        std::string output = terminal.read(c.keys + "\r").output;
        ASSERT_TRUE(output.ends_with('\n'));
        output.pop_back();
        harness::Screen screen(3, 20);
        screen.feed(output);
        int row = 0, col = 0;
        screen.cursor(row, col);
        EXPECT_EQ(screen.row(0), c.row);
        EXPECT_EQ(col, c.col);
    }
}

TEST(ViDisplay, RandomKeysLeaveTheRowRight) {
    const std::vector<std::string> pieces = {
        "word ", "a-b_c", "\x16\x01", "\t",   kEsc, kEsc, kEsc + "k", kEsc + "j", "i",
        "a",     "A",     "R",        "0",    "$",  "w",  "b",        "3e",       "l",
        "h",     "fo",    ";",        "x",    "X",  "dw", "D",        "cw",       "p",
        "2P",    "u",     "U",        ".",    "~",  "rz", "r\x02",    "\f",       kEsc + "/a\r",
        "n",     "\x7f",  "\x17",     "\x15", "_"};
    for (unsigned seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const int cols = std::vector<int>{20, 40, 80}[random() % 3];
        std::string keys = "x";
        for (auto n = random() % 40; n > 0; --n) keys += pieces[random() % pieces.size()];
        ViTerminal terminal(std::to_string(cols).c_str());
        ViTerminal::remember({"tab\there", std::string(60, 'h') + "\x01 a", "a"});
        ViTerminal::prompt("$> ");
        // Ends what may be half typed, then the line.
        keys += "\x1b\x1bl\r\r\r";
        Line got = terminal.read(keys);
        ASSERT_TRUE(got.output.ends_with('\n'));
        got.output.pop_back();
        harness::Screen screen(12, cols);
        screen.feed(got.output);
        int row = 0, col = 0;
        screen.cursor(row, col);

        got.text.pop_back();
        genchar image[kMaxImage];
        e_virt_to_phys(got.text.c_str(), image, -1, 0, 0);
        const int width = editb.e_wsize, first = vi::win_first();
        const std::string line = image + std::string(static_cast<std::size_t>(width), ' ');
        const int last = static_cast<int>(strlen(image)) - 1;
        std::string expected =
            "$> " + line.substr(static_cast<std::size_t>(first), static_cast<std::size_t>(width));
        expected += last < width ? ' ' : first == 0 ? '>' : last < first + width ? '<' : '*';
        ASSERT_EQ(screen.text(row, 0, 3 + width + 1), expected) << got.output;
        ASSERT_EQ(col, 3 + editb.e_pcur - first);
        ASSERT_TRUE(col >= 3 && col <= 3 + width);
    }
}

TEST(ViCooked, WhatTheDriverCollected) {
    const struct {
        const char *name;
        std::string prompt, keys, line, output;
        int result;
    } cases[] = {
        {"a plain line", "$ ", "ls\r", "ls\n", "\n", 3},
        {"an empty line", "$ ", "\r", "\n", "\n", 1},
        {"ended by end of file", "$ ", "ls\x04", "ls", "", 2},
        {"end of file alone", "$ ", "\x04", "", "", 0},
        {"control characters are shown again", "$ ", "a\x01\tb\r", "a\x01\tb\n", "\r$ a^A     b\n",
         5},
        {"bytes above 127 are not", "$ ", "\xc3\xa9\r", "\xc3\xa9\n", "\n", 3},
        {"behind a prompt that doesn't print", "\x1b[m_", "\x01\r", "\x01\n", "\r\x1b[m_^A\n", 2},
        {"an underscore of the line is overstruck", "$ ", "_\x01\r", "_\x01\n", "\r$  \b_^A\n", 3},
        {"a NUL is dropped", "$ ", "a\0b\r"s, "ab\n", "\r$ ab\n", 3},
        {"^V is taken out", "$ ",
         "a\x16\x16"
         "b\x16\x01"
         "c\r",
         "a\x16"
         "b\x01"
         "c\n",
         "\r$ a^Vb^Ac\n", 6},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ViTerminal terminal;
        ViTerminal::prompt(c.prompt);
        const Line got = terminal.read_cooked(c.keys);
        EXPECT_EQ(got.result, c.result);
        EXPECT_EQ(got.text, c.line);
        EXPECT_EQ(got.output, c.output);
        EXPECT_EQ(editb.e_raw, kTtyAlt);
        // A line that got its newline has used up the prompt.
        char prompt[kLineCapacity];
        editb.e_prompt = prompt;
        e_new_prompt(kLineCapacity);
        EXPECT_EQ(editb.e_plen == 0, c.line.ends_with('\n'));
    }
}

// The keys behind the escape were typed while the driver still had the terminal.
TEST(ViCooked, EscapeHandsTheLineOver) {
    const struct {
        const char *name;
        std::string keys, line;
    } cases[] = {
        {"the cursor is on the last", "abc" + kEsc + "x\r", "ab\n"},
        {"on an empty line", kEsc + "ia\r", "a\n"},
        {"an arrow key", kEsc + "[A\r", "make all\n"},
        {"arrow keys typed ahead", kEsc + "[A" + kEsc + "[A" + kEsc + "[B\r", "make all\n"},
        {"an arrow key behind text", "abc" + kEsc + "[Dx\r", "ac\n"},
        {"a bracket is no arrow later", "abc" + kEsc + "h[Ax\r", "abcx\n"},
        {"a quoted newline goes on in input mode", "ab\x16\rcd\r", "ab\ncd\n"},
        {"also when it fills the line", std::string(254, 'x') + "\x16\r",
         std::string(254, 'x') + "\n\n"},
        {"a quoted escape too", "ab\x16" + kEsc + "cd\r",
         "ab\x1b"
         "cd\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ViTerminal terminal;
        ViTerminal::remember({"ls -l", "make all"});
        ViTerminal::prompt("$ ");
        EXPECT_EQ(terminal.read_cooked(c.keys).text, c.line);
        EXPECT_EQ(editb.e_raw, kTtyRaw);
    }
}

TEST(ViCooked, HowTheRowIsTakenOver) {
    const std::string alone = blanks(78) + "\r";  // a row of 77 columns and the marker
    const struct {
        const char *name;
        std::string prompt;
        int stale;
        const char *columns;
        std::string keys, output;
    } cases[] = {
        {"the row is written anew", "$ ", 0, "80", "ab" + kEsc, "\r$ ab" + blanks(74) + "\r$ a"},
        {"behind a prompt that doesn't print nothing is", "\x1b[m", 0, "80", "ab" + kEsc, "\b"},
        {"without any prompt neither", "", 0, "80", kEsc, ""},
        {"control characters there take a row", "\x1b[m", 0, "80", "\x01" + kEsc,
         "\n\r^A" + blanks(76) + "\r^"},
        {"and so does a line that is wider than the window", "\x1b[m", 0, "20",
         repeated("x", 16) + kEsc, "\n\r" + repeated("x", 16) + "   \b\b\b\b"},
        {"the row of an interrupted line is left", "$ ", 1, "80", kEsc,
         "\n\r$ " + blanks(76) + "\r$ "},
        {"also without a prompt", "", 1, "80", kEsc, "\n" + blanks(78) + repeated("\b", 78)},
        {"a wide prompt leaves the line a row", "123456789", 0, "20", "a" + kEsc,
         "\n\ra" + blanks(18) + "\r"},
        {"with one newline", "123456789", 1, "20", "a" + kEsc, "\n\ra" + blanks(18) + "\r"},
        {"a prompt of half the window stays", "12345678", 0, "20", "a" + kEsc,
         "\r12345678a" + blanks(10) + "\r12345678"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ViTerminal terminal(c.columns);
        ViTerminal::prompt(c.prompt);
        e_row_stale = c.stale;
        EXPECT_EQ(terminal.read_cooked(c.keys + "\r").output, c.output + "\n");
        EXPECT_EQ(e_row_stale, 0);
    }
}

TEST(ViCooked, ALongPasteComesInPieces) {
    ViTerminal terminal;
    const Line first = terminal.read_cooked(repeated("0123456789", 30) + "\r");
    EXPECT_EQ(first.text, repeated("0123456789", 30).substr(0, 256));
    EXPECT_EQ(terminal.read_cooked("").text, repeated("0123456789", 30).substr(256) + "\n");
}

TEST(ViLimits, FullLines) {
    const std::string x300(300, 'x');
    const struct {
        const char *name;
        std::string prompt, keys, line;
    } cases[] = {
        {"typing ends the line with a backslash", "$ ", x300, x300.substr(0, 253) + "\\\n"},
        {"which may be there", "$ ", x300.substr(0, 252) + "\\x", x300.substr(0, 252) + "\\\n"},
        {"a long prompt leaves less", std::string(60, '#'), x300, x300.substr(0, 195) + "\\\n"},
        {"columns count", "$ ", repeated("\x16\x01", 200), repeated("\x01", 127) + "\\\n"},
        {"put stops", "$ ", "ab" + kEsc + "yy" + kHuge + "p\r", repeated("ab", 126) + "a\n"},
        {"a recalled line is cut", "$ ", kEsc + "k\r", x300.substr(0, 255) + "\n"},
        {"it takes no input", "$ ", kEsc + "kiXX\r", x300.substr(0, 255) + "\n"},
        {"nor an overwriting one", "$ ", kEsc + "kRr.\r", "." + x300.substr(0, 254) + "\n"},
        {"r and ~ store", "$ ", kEsc + "kr.l~$rZ\r", ".X" + x300.substr(0, 252) + "Z\n"},
        {"r of two columns stores", "$ ", kEsc + "kr\x01\r", "\x01" + x300.substr(0, 254) + "\n"},
        {"a comment loses its last", "$ ", kEsc + "k#", "#" + x300.substr(0, 254) + "\n"},
        {"a search text goes on", "$ ", kEsc + "/" + x300 + "\x15xx\r\r",
         x300.substr(0, 255) + "\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ViTerminal terminal;
        ViTerminal::remember({x300});
        ViTerminal::prompt(c.prompt);
        EXPECT_EQ(terminal.read(c.keys).text, c.line);
    }
}

TEST(ViLimits, InputOnAFullLineRings) {
    ViTerminal terminal;
    ViTerminal::remember({std::string(300, 'x')});
    const std::string output = terminal.read(kEsc + "ka\r").output;
    EXPECT_EQ(std::count(output.begin(), output.end(), '\a'), 1);
}

TEST(ViLimits, EndOfInput) {
    ViTerminal terminal;
    EXPECT_EQ(terminal.read("\x04").result, 0);
    EXPECT_EQ(terminal.read(kEsc + "i\x04").result, 0);
    // With text behind the cursor the line goes without a newline.
    EXPECT_EQ(terminal.read("ab" + kEsc + "0i\x04").text, "ab");
    EXPECT_EQ(terminal.read("a\0"s).result, 0);
    progdone = SIGINT;
    EXPECT_EQ(terminal.read("a").result, 0);
    EXPECT_EQ(terminal.read_cooked("").result, 0);
    progdone = 0;
}
