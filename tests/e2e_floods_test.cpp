// e2e_floods_test.cpp: bytes in numbers that no one would write down: every value, megabytes of
// output, long pastes. None is lost or doubled, and keys are served meanwhile.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/desk.h"

using harness::Desk;
using harness::Options;

static const std::vector<std::string> kStyles = {"emacs", "gmacs", "vi"};

static Options in_shell(const std::string &style, const std::string &script) {
    return {.style = style, .program = {"sh", "-c", script}};
}

// "0" to before "`count`", a line each, with text around the numbers.
static std::string numbered(int count, const std::string &before = "",
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
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    for (const std::string style : {"emacs", "vi"}) {
        for (const std::string mode : {"0", "1"}) {
            SCOPED_TRACE(style + " -m " + mode);
            Session s(Options{
                .style = style,
                .outer = {"sh", "-c",
                          "stty susp undef; \"$MORP\" -m " + mode +
                              " -- sh -c 'stty raw -echo; printf ready; head -c 256 >came; cat "
                              "bytes'; stty susp ^Z"},
                .files = {{"bytes", all}}});
            s.wait_text("ready");
            s.wait_mode(harness::Mode::pass);
            s.type(all);
            EXPECT_EQ(s.wait_exit(), 0);
            EXPECT_EQ(s.file("came"), all);
            EXPECT_EQ(s.output(), "ready" + all);
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
    Session s(
        in_shell("emacs", "stty -echo; seq 0 299999; echo flooded; read -r x; echo \"<$x>\""));
    type_into_flood(s, "abcd\r");
    EXPECT_EQ(s.wait_exit(), 0);
    EXPECT_TRUE(printed(s) == numbered(300000) + "flooded\n<abcd>\n");
}

// The typed text comes and goes behind what the program has written so far; on a screen that holds
// all of it, every row must be the program's own in the end.
TEST(Flood, ALineTypedIntoItArrivesWhole) {
    for (const std::string style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Options options =
            in_shell(style, "seq 0 4999; echo flooded; read -r x; echo \"<$x>\"; read -r x");
        options.rows = 5100;
        Session s(options);
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
        Session s(in_shell(style, "echo ready; while read -r x; do echo $x; done >came"));
        s.wait_text("ready");
        s.wait_asleep();
        std::string keys = numbered(1000);
        std::ranges::replace(keys, '\n', '\r');
        s.type(keys + "\4");
        EXPECT_EQ(s.wait_exit(), 0);
        EXPECT_EQ(s.file("came"), numbered(1000));
        const std::string lines = "\n" + printed(s);
        for (int i = 0; i < 1000; ++i) {
            const std::string line = "\n" + std::to_string(i) + "\n";
            EXPECT_EQ(lines.find(line), lines.rfind(line)) << i;
        }
    }
}

// Prints `text` while a line is edited, and calls `press` in between, which types an X each for
// `keys`. Every byte comes in its order, and not much beside it: what takes the line off the screen
// and brings it back. Returns what came.
static std::string flood(Desk &s, const std::string &text, const std::size_t &keys,
                         const std::function<void()> &press) {
    s.edit("abc");
    const std::size_t from = s.mark();
    s.print(text + "> ", press);
    s.wait_line(2 + static_cast<int>(keys), "ab" + std::string(keys, 'X') + "c");
    const std::string log = s.output_since(from);
    std::size_t found = 0;
    for (const char c : log)
        if (found < text.size() && c == text[found]) ++found;
    EXPECT_EQ(found, text.size());
    // Either terminal puts a carriage return in front of a newline.
    const auto newlines = static_cast<std::size_t>(std::ranges::count(text, '\n'));
    EXPECT_LT(log.size() - text.size() - 2 * newlines, 400 * (keys + 10));
    return log;
}

// A key brings the line back at once, between two reads of output, wherever the first one ended.
TEST(FloodInAnEdit, KeysDoNotBreakItsEscapeSequences) {
    const std::string red = "\x1b[1;31m", plain = "\x1b[0m";
    constexpr std::size_t kKeys = 60;
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(Options{.style = style, .program = {"actor", "echo", "> "}});
        std::size_t typed = 0;
        const std::string log = flood(s, numbered(20000, red, plain), typed, [&] {
            if (typed == kKeys) return;
            s.type("X");
            ++typed;
        });
        std::size_t broken = 0;
        for (std::size_t at = 0; (at = log.find('\x1b', at)) != std::string::npos; ++at)
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
            std::size_t pressed = 0;
            const auto press = [&] {
                if (pressed != 0 || s.mark() < 2000000) return;
                pressed = s.mark();
                s.type(answer == "X" ? "X" : "\x03");
            };
            if (answer == "X") {
                flood(s, text, 1, press);
            } else {
                s.edit("abc");
                s.print(text + "> ", press);
            }
            s.wait_output(answer, pressed);
            EXPECT_LT(s.output().find(answer, pressed) - pressed, kOnTheWay);
        }
    }
}
