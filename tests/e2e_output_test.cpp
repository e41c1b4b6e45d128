// e2e_output_test.cpp: output while a line is edited: what programs print in the meantime, in every
// style, up to floods, changes of the program's mode and its end. What happens in each of an
// editor's waits is in e2e_emacs_test.cpp and e2e_vi_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "harness/screen.h"
#include "harness/session.h"

using namespace std::string_literals;
using harness::Mode;
using harness::Options;
using harness::Screen;

static const std::vector<std::string> kStyles = {"emacs", "gmacs", "vi"};

// A program that reads lines, and its terminal, on which the test prints beside it. `paper_` is a
// screen that gets only what was printed: what the user would see without the line.
class Desk : public Session {
public:
    explicit Desk(const std::string &style,
                  const std::vector<std::string> &program = {"actor", "echo", "> "})
        : Session(Options{.style = style, .program = program}), vi_(style == "vi"), paper_(24, 80) {
        wait_editing("> ");
        paper_.feed("> ");
        const std::string path = "/proc/" + std::to_string(program_pid()) + "/fd/0";
        terminal_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        if (terminal_ < 0) throw std::runtime_error("the program's terminal");
    }
    ~Desk() { close(terminal_); }

    // Types `text`, the cursor then in front of its last character and the next key text.
    void edit(const std::string &text) {
        type(text + (vi_ ? "\x1b" : "\2"));
        wait_mode(Mode::raw);
        if (vi_) type("i");
        const int column = paper_column() + static_cast<int>(text.size()) - 1;
        wait_for("the cursor in the text", [&] { return cursor().col == column; });
        wait_asleep();
    }
    // Prints all of `text`; `meanwhile` is called whenever the terminal takes no more, or has
    // taken a piece.
    void print(
        std::string_view text, const std::function<void()> &meanwhile = [] {}) {
        show_on_paper(text);
        while (!text.empty()) {
            const ssize_t n =
                write(terminal_, text.data(), std::min<std::size_t>(text.size(), 4096));
            if (n > 0) text.remove_prefix(static_cast<std::size_t>(n));
            mark();  // takes what morp writes
            meanwhile();
            pollfd room{terminal_, POLLOUT, 0};
            if (n <= 0) poll(&room, 1, 1);
        }
    }
    // Waits until the screen is the paper with `line` behind the prompt, the cursor `column`
    // columns further on.
    void wait_line(const std::string &line, int column) {
        int row = 0, col = 0;
        paper_.cursor(row, col);
        std::string wanted;
        for (int n = 0; n < 24; ++n)
            wanted += (n == row ? trimmed(paper_.text(n, 0, col) + line) : paper_.row(n)) + '\n';
        wanted.erase(wanted.find_last_not_of('\n') + 1);
        wanted += '\n';
        wait_for("the screen\n" + wanted, [&] {
            return screen() == wanted && cursor() == Place{row, col + column};
        });
    }
    // Changes the modes of the program's terminal.
    void set_modes(const std::function<void(termios &)> &change) {
        termios now{};
        tcgetattr(terminal_, &now);
        change(now);
        tcsetattr(terminal_, TCSANOW, &now);
    }

private:
    // Of a flood only the end, which covers all of the paper.
    void show_on_paper(std::string_view text) {
        constexpr std::size_t kMost = 16384;
        if (text.size() > kMost) text.remove_prefix(text.find('\n', text.size() - kMost));
        std::string cooked;
        for (const char c : text) {
            if (c == '\n') cooked += '\r';
            cooked += c;
        }
        paper_.feed(cooked);
    }
    int paper_column() {
        int row = 0, col = 0;
        paper_.cursor(row, col);
        return col;
    }
    static std::string trimmed(std::string text) {
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    }

    bool vi_;
    int terminal_ = -1;
    Screen paper_;
};

struct OutputCase {
    const char *name;
    std::vector<std::string> pieces;  // each is followed by a look at the screen
};

static const std::vector<OutputCase> kOutputs = {
    {"a line now and then", {"one\n> ", "two\n> ", "three\n> "}},
    {"pieces without a line end", {"wait", "... ", "more> "}},
    {"a bar that starts with a carriage return", {"\r[#  ]", "\r[## ]", "\r[###]\n> "}},
    {"a bar that ends with a carriage return",
     {"\n 10% done\r", " 55% done\r", "100% done\r", "\n> "}},
    {"a bar in colour that ends with one", {"\n\x1b[32m10%\x1b[0m done\r", "\x1b[K\n> "}},
    {"a bar that is rubbed out", {"\n[## ]\r", "     \r", "> "}},
    {"backspaces", {"\n10%", "\b\b\b20%", "\n> "}},
    {"an empty row", {"\n", "\n"}},
    {"a prompt of another length", {"\nanother prompt> ", "\n$ ", "\n> "}},
    {"a prompt in colour", {"\n\x1b[1;32mhost\x1b[0m$ ", "\x1b[31mred\x1b[0m ", "\n> "}},
    {"a cleared screen", {"one\ntwo\n> ", "\x1b[H\x1b[2Jnew> ", "\x1b[H\x1b[J"}},
    {"a bell", {"\a", "one\n\a> "}},
    {"more than the screen holds", {[] {
         std::string lines;
         for (int n = 0; n < 2000; ++n) lines += "line " + std::to_string(n) + "\n";
         return lines + "> ";
     }()}},
};

static void check_output(const std::string &style, const OutputCase &c) {
    Desk s(style);
    s.edit("abc");
    for (const std::string &piece : c.pieces) {
        s.print(piece);
        s.wait_line("abc", 2);
    }
    s.type("X");
    s.wait_line("abXc", 3);
    s.type("\r");
    s.wait_text("<abXc>");
}

TEST(OutputInAnEdit, IsShownWholeAndTheLineStandsOnceBehindThePrompt) {
    for (const std::string &style : kStyles) {
        for (const OutputCase &c : kOutputs) {
            SCOPED_TRACE(style + ", " + c.name);
            check_output(style, c);
        }
    }
}

// What the line stood over is there again also when the line was there first.
TEST(OutputInAnEdit, WhatTheLineCoversComesBackAtTheStartOfAnEditToo) {
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(style);
        s.print("\n10% done\r");
        s.wait_row(1, "10% done");
        s.edit("abc");
        s.print("\n> ");
        s.wait_line("abc", 2);
    }
}

TEST(OutputInAnEdit, NothingWakesWhileNothingHappens) {
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(style);
        s.edit("abc");
        s.print("one\n> ");
        s.wait_line("abc", 2);
        s.wait_asleep();
        const long before = s.sleeps();
        usleep(150000);  // seven times what the line stays away
        EXPECT_EQ(s.sleeps(), before);
    }
}

TEST(OutputInAnEdit, AByteEveryMillisecondLetsKeysThrough) {
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(style);
        s.edit("abc");
        for (int n = 0; n < 100; ++n) {
            s.print(n % 25 == 24 ? "\n" : ".");
            if (n == 50) s.type("X");
            usleep(1000);
        }
        s.print("\n> ");
        s.wait_line("abXc", 3);
    }
}

static std::string flood(int count, const std::string &before, const std::string &after) {
    std::string text;
    for (int n = 0; n < count; ++n) text += before + std::to_string(n) + after + "\n";
    return text;
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
TEST(OutputInAnEdit, KeysDoNotBreakTheEscapeSequencesOfAFlood) {
    const std::string red = "\x1b[1;31m", plain = "\x1b[0m";
    const std::string text = flood(20000, red, plain);
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(style);
        s.edit("abc");
        const std::size_t from = s.mark();
        std::string typed;
        s.print(text + "> ", [&] {
            if (typed.size() == 60) return;
            s.type("X");
            typed += 'X';
        });
        s.wait_line("ab" + typed + "c", 2 + static_cast<int>(typed.size()));
        expect_flood(s, from, text, typed.size());
        const std::string &log = s.output();
        for (std::size_t at = from; (at = log.find('\x1b', at)) != std::string::npos; ++at)
            ASSERT_TRUE(log.compare(at, red.size(), red) == 0 ||
                        log.compare(at, plain.size(), plain) == 0)
                << harness::visible(log.substr(at, 40));
    }
}

// Bytes that lie in the queues of both terminals when a key is pressed, and what morp and the test
// may read on top of them.
static constexpr std::size_t kOnTheWay = 400000;

TEST(OutputInAnEdit, AKeyIsServedInTheMiddleOfTenMegabytes) {
    const std::string text = flood(100000, "", std::string(94, '.'));
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(style);
        s.edit("abc");
        const std::size_t from = s.mark();
        std::size_t pressed = 0;
        s.print(text + "> ", [&] {
            if (pressed != 0 || s.mark() < 2000000) return;
            pressed = s.mark();
            s.type("X");
        });
        s.wait_line("abXc", 3);
        EXPECT_LT(s.output().find('X', pressed) - pressed, kOnTheWay);
        expect_flood(s, from, text, 1);
        s.type("\r");
        s.wait_text("<abXc>");
    }
}

TEST(OutputInAnEdit, InterruptReachesTheProgramInTheMiddleOfAFlood) {
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(style, {"actor", "signals"});
        s.edit("abc");
        std::size_t pressed = 0;
        s.print(flood(30000, "", std::string(90, '.')), [&] {
            if (pressed != 0 || s.mark() < 500000) return;
            pressed = s.mark();
            s.type("\x03");
        });
        s.wait_output("<signal 2>", pressed);
        EXPECT_LT(s.output().find("<signal 2>", pressed) - pressed, kOnTheWay);
    }
}

struct ModeCase {
    const char *name;
    std::function<void(termios &)> change;
    const char *printed;
};
static const std::vector<ModeCase> kModes = {
    {"password", [](termios &t) { t.c_lflag &= ~static_cast<tcflag_t>(ECHO); }, "\nPassword: "},
    {"full screen", [](termios &t) { t.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON); },
     "\x1b[?1049h\x1b[H\x1b[2Jfull "},
    {"without a word", [](termios &t) { t.c_lflag &= ~static_cast<tcflag_t>(ECHO); }, ""},
};

TEST(OutputInAnEdit, ProgramThatLeavesLineInputGetsTheTextAndAClearScreen) {
    for (const std::string &style : kStyles) {
        for (const ModeCase &c : kModes) {
            SCOPED_TRACE(style + ", " + c.name);
            Desk s(style);
            s.edit("abc");
            s.set_modes(c.change);
            s.print(c.printed);
            // A program that says nothing is noticed at the next key.
            if (*c.printed == '\0') s.type("d");
            s.wait_mode(Mode::pass);
            s.wait_line("", 0);
            s.type(*c.printed == '\0' ? "\n" : "d\n");
            s.wait_output("<abcd>");
            EXPECT_EQ(s.history("actor").find("abc"), std::string::npos);
        }
    }
}

TEST(OutputInAnEdit, ProgramThatEndsHasTheLastWord) {
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(style);
        s.edit("abc");
        s.print("\nbye\n", [&] { kill(s.program_pid(), SIGKILL); });
        (void)s.wait_exit();
        s.wait_row(0, ">");
        s.wait_row(1, "bye");
        EXPECT_EQ(s.history("actor").find("abc"), std::string::npos);
    }
}

// Behind a prompt that has grown the line may have reached its limit; a key must still go where the
// cursor is.
TEST(OutputInAnEdit, APromptThatGrowsDoesNotEndTheLine) {
    for (const std::string &style : kStyles) {
        SCOPED_TRACE(style);
        Desk s(style);
        const std::string text(140, 't');
        s.edit("abc");
        s.type(text);
        s.wait_asleep();
        s.print("\n" + std::string(60, 'p'));
        s.wait_for("the line", [&] { return s.row(1).find('<') != std::string::npos; });
        s.wait_asleep();
        s.type("X");
        s.wait_asleep();
        s.type("\r");
        s.wait_output("<ab" + text + "Xc>");
    }
}
