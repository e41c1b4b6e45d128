// e2e_floods_test.cpp: bytes in numbers that no one would write down: every value, megabytes of
// output, long pastes. None is lost or doubled, and keys are served meanwhile.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "harness/desk.h"

using harness::Desk;
using harness::Options;

static const std::vector<std::string> kStyles = {"emacs", "gmacs", "vi"};

static std::string all_bytes() {
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    return all;
}

// "line 0" to before "line `count`", or with other text around the numbers.
static std::string numbered(int count, const std::string &before = "line ",
                            const std::string &after = "") {
    std::string text;
    for (int n = 0; n < count; ++n) text += before + std::to_string(n) + after + "\n";
    return text;
}

// What went over the screen, whatever the two terminals made of line ends.
static std::string printed(Session &s) {
    std::string text = s.output();
    std::erase(text, '\r');
    return text;
}

// With a program in raw mode. A suspend key that is switched off is no key, not even the one of its
// value.
TEST(EveryByte, Passes) {
    for (const std::string style : {"emacs", "vi"}) {
        for (const std::string mode : {"0", "1"}) {
            SCOPED_TRACE(style + " -m " + mode);
            Session up(Options{.style = style,
                               .outer = {"sh", "-c",
                                         "stty susp undef; \"$MORP\" -m " + mode +
                                             " actor take 256; stty susp ^Z"}});
            up.wait_text("ready");
            up.wait_mode(harness::Mode::pass);
            up.type(all_bytes());
            EXPECT_EQ(up.wait_exit(), 0);
            EXPECT_NE(up.screen().find("<256 taken, 0 wrong>"), std::string::npos);
            Session down(Options{
                .style = style,
                .morp_args = {"-m", mode},
                .program = {"sh", "-c", "stty raw -echo; printf ready; read -r x; actor give"}});
            down.wait_text("ready");
            down.wait_mode(harness::Mode::pass);
            down.type("\n");
            EXPECT_EQ(down.wait_exit(), 0);
            EXPECT_EQ(down.output(), "ready[" + all_bytes() + "]");
        }
    }
}

// Types `keys` one by one, spread over the output of a program that floods.
static void type_into_flood(Session &s, std::string_view keys) {
    for (const char key : keys) {
        const auto mark = s.mark();
        s.wait_for("more output", [&] {
            return s.mark() > mark + 1000 || s.output().find("flooded") != std::string::npos;
        });
        s.type({&key, 1});
    }
}

TEST(Flood, MegabytesStayWholeWhileKeysAreTyped) {
    // Echo off: every key passes through at once and none is shown.
    Session s("emacs", "stty -echo; actor flood 200; read -r x; echo \"<$x>\"");
    type_into_flood(s, "abcd\r");
    EXPECT_EQ(s.wait_exit(), 0);
    EXPECT_TRUE(printed(s) == numbered(200000) + "flooded\n<abcd>\n");
}

// The typed text comes and goes behind what the program has written so far; on a screen that holds
// all of it, every row must be the program's own in the end.
TEST(Flood, ALineTypedIntoItArrivesWhole) {
    for (const std::string style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(
            Options{.style = style,
                    .program = {"sh", "-c", "actor flood 5; read -r x; echo \"<$x>\"; read -r x"},
                    .rows = 5100});
        type_into_flood(s, "abcd");
        s.wait_output("flooded");
        if (style == "emacs") s.wait_editing("abcd");
        s.type("\r");
        s.wait_text("<abcd>");
        if (style == "vi") continue;  // the terminal itself shows the keys
        EXPECT_EQ(s.screen(), numbered(5000) + "flooded\nabcd\n<abcd>\n");
    }
}

TEST(Flood, APasteBeyondEveryQueueAgainstItLocksNothing) {
    std::string paste;
    for (std::size_t i = 0; i < 30000; ++i) paste += static_cast<char>('a' + i % 26);
    Session s(Options{.program = {"actor", "flood-take", std::to_string(paste.size())}});
    s.wait_output("ready");
    s.wait_mode(harness::Mode::pass);
    s.type(paste);
    EXPECT_EQ(s.wait_exit(), 0);
    EXPECT_NE(s.output().find("<30000 taken, 0 wrong>"), std::string::npos);
}

TEST(Paste, LinesArriveInOrderAndNoneIsShownTwice) {
    for (const std::string style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(Options{.style = style, .program = {"actor", "count"}});
        s.wait_text("ready");
        s.wait_asleep();
        std::string keys = numbered(1000, "");
        std::ranges::replace(keys, '\n', '\r');
        s.type(keys + "count\r");
        EXPECT_EQ(s.wait_exit(), 0);
        const std::string lines = "\n" + printed(s);
        EXPECT_NE(lines.find("\n<1000 lines, 0 wrong>\n"), std::string::npos) << s.screen();
        for (int i = 0; i < 1000; ++i) {
            const std::string line = "\n" + std::to_string(i) + "\n";
            EXPECT_EQ(lines.find(line), lines.rfind(line)) << i;
        }
    }
}

// Every byte of `flood` came since `from`, in its order, and not much beside it: what takes the
// line off the screen and brings it back for `keys` keys.
static void expect_flood(Desk &s, std::size_t from, std::string_view flood, std::size_t keys) {
    const std::string &log = s.output();
    std::size_t found = 0;
    for (std::size_t at = from; at < log.size() && found < flood.size(); ++at)
        if (log[at] == flood[found]) ++found;
    EXPECT_EQ(found, flood.size());
    // Either terminal puts a carriage return in front of a newline.
    const auto newlines = std::count(flood.begin(), flood.end(), '\n');
    const std::size_t sent = flood.size() + 2 * static_cast<std::size_t>(newlines);
    EXPECT_LT(log.size() - from - sent, 400 * (keys + 10));
}

// A key brings the line back at once, between two reads of output, wherever the first one ended.
TEST(FloodInAnEdit, KeysDoNotBreakItsEscapeSequences) {
    const std::string red = "\x1b[1;31m", plain = "\x1b[0m";
    const std::string text = numbered(20000, red, plain);
    constexpr int kKeys = 60;
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(Options{.style = style, .program = {"actor", "echo", "> "}});
        s.edit("abc");
        const std::size_t from = s.mark();
        std::string typed;
        s.print(text + "> ", [&] {
            if (typed.size() == kKeys) return;
            s.type("X");
            typed += 'X';
        });
        s.wait_line(2 + static_cast<int>(typed.size()), "ab" + typed + "c");
        expect_flood(s, from, text, typed.size());
        const std::string &log = s.output();
        int broken = 0;
        for (std::size_t at = from; (at = log.find('\x1b', at)) != std::string::npos; ++at)
            broken +=
                log.compare(at, red.size(), red) != 0 && log.compare(at, plain.size(), plain) != 0;
        // morp waits no longer than 2 ms for the rest, which this process may not have written.
        EXPECT_LE(broken, kKeys / 6);
    }
}

TEST(FloodInAnEdit, AKeyIsServedInTheMiddleOfTenMegabytes) {
    // Bytes that lie in the queues of both terminals when a key is pressed, and what morp and the
    // test may read on top of them.
    constexpr std::size_t kOnTheWay = 400000;
    const std::string text = numbered(100000, "", std::string(94, '.'));
    for (const std::string &style : kStyles) {
        for (const std::string answer : {"X", "<signal 2>"}) {
            SCOPED_TRACE(style + " " + answer);
            Desk s(Options{.style = style, .program = {"actor", "signals"}});
            s.edit("abc");
            const std::size_t from = s.mark();
            std::size_t pressed = 0;
            s.print(text + "> ", [&] {
                if (pressed != 0 || s.mark() < 2000000) return;
                pressed = s.mark();
                s.type(answer == "X" ? "X" : "\x03");
            });
            s.wait_output(answer, pressed);
            EXPECT_LT(s.output().find(answer, pressed) - pressed, kOnTheWay);
            if (answer != "X") continue;
            s.wait_line(3, "abXc");
            expect_flood(s, from, text, 1);
        }
    }
}
