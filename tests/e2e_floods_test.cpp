// e2e_floods_test.cpp: megabytes of output while a line is edited. No byte is lost or doubled, and
// keys are served meanwhile. Other floods are in cases/e2e_floods.txt.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "harness/session.h"

using harness::Options;

static const std::vector<std::string> kStyles = {"emacs", "gmacs", "vi"};

// "0" to before "`count`", a line each, with text around the numbers.
static std::string numbered(int count, const std::string &before = "",
                            const std::string &after = "") {
    std::string text;
    for (int n = 0; n < count; ++n) text += before + std::to_string(n) + after + "\n";
    return text;
}

// Prints `text` while a line is edited, and calls `press` in between, which types an X each for
// `keys`. Every byte comes in its order, and not much beside it: what takes the line off the screen
// and brings it back. Returns what came.
static std::string flood(Session &s, const std::string &text, const std::size_t &keys,
                         const std::function<void()> &press) {
    s.edit("abc");
    const std::size_t from = s.mark();
    s.print(text + "> ", press);
    s.wait_line(2 + static_cast<int>(keys), "ab" + std::string(keys, 'X') + "c");
    std::string log = s.output_since(from);
    std::size_t found = 0;
    for (const char c : log)
        if (found < text.size() && c == text[found]) ++found;
    EXPECT_EQ(found, text.size());
    // Either terminal puts a carriage return in front of a newline.
    const auto newlines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    EXPECT_LT(log.size() - text.size() - 2 * newlines, 400 * (keys + 10));
    return log;
}

// A key brings the line back at once, between two reads of output, wherever the first one ended.
TEST(FloodInAnEdit, KeysDoNotBreakItsEscapeSequences) {
    const std::string red = "\x1b[1;31m", plain = "\x1b[0m";
    constexpr std::size_t kKeys = 60;
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Session s(Options{.style = style, .program = {"actor", "echo", "> "}});
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

TEST(FloodInAnEdit, AKeyIsServedInTheMiddleOfMegabytes) {
    // Bytes that lie in the queues of both terminals when a key is pressed, and what morp and the
    // test may read on top of them.
    constexpr std::size_t kOnTheWay = 400000;
    const std::string text = numbered(30000, "", std::string(94, '.'));
    for (const std::string &style : kStyles) {
        for (const std::string answer : {"X", "<signal 2>"}) {
            SCOPED_TRACE(style + " " + answer);
            Session s(Options{.style = style, .program = {"actor", "signals"}});
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
