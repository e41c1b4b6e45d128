// e2e_relay_test.cpp: bytes between the user and the program, both ways: none lost, none doubled,
// the right terminal mode at every moment, nothing of a password on the screen or on disk.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <string_view>
#include <vector>

#include "harness/session.h"

using harness::Mode;
using harness::Options;

static Options run(std::string_view style, std::string_view mode,
                   std::vector<std::string> program) {
    Options options;
    options.style = style;
    options.morp_args = {"-m", std::string(mode)};
    options.program = std::move(program);
    return options;
}

static std::string all_bytes() {
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    return all;
}

static std::string hex(std::string_view bytes) {
    std::string out;
    for (const char c : bytes) {
        char two[8];
        (void)snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(c));
        out += two;
    }
    return out;
}

// The lines that went over the screen, whatever the two terminals made of line ends.
static std::vector<std::string> lines_of(std::string output) {
    std::erase(output, '\r');
    std::vector<std::string> lines(1);
    for (const char c : output) {
        if (c == '\n')
            lines.emplace_back();
        else
            lines.back() += c;
    }
    return lines;
}

TEST(Relay, EveryByteReachesTheScreen) {
    for (const char *mode : {"0", "1"}) {
        SCOPED_TRACE(mode);
        Session s(run("emacs", mode,
                      {"sh", "-c", "stty raw -echo; printf ready; read -r x; actor give"}));
        s.wait_text("ready");
        s.wait_mode(Mode::pass);
        s.type("\n");
        EXPECT_EQ(s.wait_exit(), 0);
        EXPECT_EQ(hex(s.output()), hex("ready[" + all_bytes() + "]"));
    }
}

TEST(Relay, EveryByteReachesAProgramInRawMode) {
    for (const char *style : {"emacs", "vi"}) {
        for (const char *mode : {"0", "1"}) {
            SCOPED_TRACE(std::string(style) + " -m " + mode);
            Options options = run(style, mode, {"actor", "take", "256"});
            // A suspend key that is switched off is no key, not even the one of its value.
            options.terminal = [](termios &t) { t.c_cc[VSUSP] = 0; };
            Session s(options);
            s.wait_text("ready");
            s.wait_mode(Mode::pass);
            s.type(all_bytes());
            EXPECT_EQ(s.wait_exit(), 0);
            std::string shown = s.screen();
            std::erase(shown, '\n');
            EXPECT_NE(shown.find("[" + hex(all_bytes()) + "]"), std::string::npos) << shown;
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

TEST(Relay, MegabytesOfOutputStayWholeWhileKeysAreTyped) {
    // Echo off: every key passes through at once and none is shown.
    Session s("emacs", "stty -echo; actor flood 200; read -r x; echo \"<$x>\"");
    type_into_flood(s, "abcd\r");
    EXPECT_EQ(s.wait_exit(), 0);
    const auto lines = lines_of(s.output());
    ASSERT_EQ(lines.size(), 200003U);
    for (std::size_t i = 0; i < 200000; ++i) ASSERT_EQ(lines[i], "line " + std::to_string(i));
    EXPECT_EQ(lines[200000], "flooded");
    EXPECT_EQ(lines[200001], "<abcd>");
}

// The typed text comes and goes behind what the program has written so far; on a screen that holds
// all of it, every row must be the program's own in the end.
TEST(Relay, ALineTypedIntoAFloodArrivesWhole) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Options options =
            run(style, "1", {"sh", "-c", "actor flood 5; read -r x; echo \"<$x>\"; read -r x"});
        options.rows = 5100;
        Session s(options);
        type_into_flood(s, "abcd");
        s.wait_output("flooded");
        if (std::string_view(style) == "emacs") s.wait_editing("abcd");
        s.type("\r");
        s.wait_text("<abcd>");
        if (std::string_view(style) == "vi") continue;  // the terminal itself shows the keys
        for (int i = 0; i < 5000; ++i) ASSERT_EQ(s.row(i), "line " + std::to_string(i));
        EXPECT_EQ(s.row(5000), "flooded");
        EXPECT_EQ(s.row(5001), "abcd");
        EXPECT_EQ(s.row(5002), "<abcd>");
    }
}

TEST(Relay, APasteBeyondEveryQueueAgainstAFloodLocksNothing) {
    std::string paste;
    for (std::size_t i = 0; i < 30000; ++i) paste += static_cast<char>('a' + i % 26);
    Session s(run("emacs", "1", {"actor", "flood-take", std::to_string(paste.size())}));
    s.wait_output("ready");
    s.wait_mode(Mode::pass);
    s.type(paste);
    EXPECT_EQ(s.wait_exit(), 0);
    EXPECT_NE(s.output().find("<30000 taken, 0 wrong>"), std::string::npos);
}

TEST(Toggle, IsSeenHoweverItArrives) {
    const std::string toggle = "~~;1";
    for (unsigned cuts = 0; cuts < 8; ++cuts) {
        SCOPED_TRACE(cuts);
        Session s(run("emacs", "0", {"actor", "echo", "> "}));
        s.wait_text("> ");
        s.wait_asleep();
        std::string piece;
        for (std::size_t i = 0; i < toggle.size(); ++i) {
            piece += toggle[i];
            if (i < 3 && (cuts >> i & 1) == 0) continue;
            EXPECT_EQ(s.mode(), Mode::pass);
            s.type(piece);
            s.wait_asleep();
            piece.clear();
        }
        EXPECT_EQ(s.mode(), Mode::raw);
        s.type("on\r");
        s.wait_text("<on>");
        // At the start of an edited line it goes the other way, and the rest of the line is sent.
        s.wait_editing("> ");
        s.type("~~;1off\r");
        s.wait_text("<off>");
        s.wait_mode(Mode::pass);
        EXPECT_EQ(s.history("actor").find("~~;1on"), std::string::npos);
    }
}

TEST(Toggle, OtherKeysLikeItPass) {
    const struct {
        std::vector<std::string> reads;
        const char *line;
    } kCases[] = {
        {{"~", "~", ";", "2", "\r"}, "<~~;2>"},
        {{"~", "x", "\r"}, "<~x>"},
        {{"a~~;1", "\r"}, "<a~~;1>"},
        {{"~~", "~;1", "\r"}, "<~~~;1>"},
        {{"~~;", "\r"}, "<~~;>"},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.line);
        Session s(run("emacs", "0", {"actor", "echo", "> "}));
        s.wait_text("> ");
        for (const auto &read : c.reads) {
            s.type(read);
            s.wait_asleep();
        }
        s.wait_text(c.line);
        EXPECT_EQ(s.mode(), Mode::pass);
    }
}

TEST(Toggle, OffDuringAFullScreenStaysOffAfterIt) {
    Session s(run("emacs", "1", {"actor", "screen"}));
    s.wait_editing("> ");
    s.type("go\r");
    s.wait_text("full");
    s.wait_mode(Mode::pass);
    s.type("~~;1");
    s.wait_asleep();
    s.type("q");
    s.wait_text("> ");
    s.wait_asleep();
    EXPECT_EQ(s.mode(), Mode::pass);
    s.type("~~;1");
    s.wait_editing("> ");
}

// The editor believes the terminal to be in its mode; a mode that was lost on the way shows in a
// line that comes out twice, or in an escape key that is taken for text.
TEST(ModeAfterWakeUp, IsTheEditorsOwn) {
    const struct {
        const char *name;
        void (*happen)(Session &);
    } kEvents[] = {
        {"resize", [](Session &s) { s.resize(20, 90); }},
        {"SIGWINCH", [](Session &s) { s.signal(SIGWINCH); }},
        {"SIGCHLD", [](Session &s) { s.signal(SIGCHLD); }},
        {"SIGCONT", [](Session &s) { s.signal(SIGCONT); }},
        {"status packet",
         [](Session &s) {
             const std::string tty = "/proc/" + std::to_string(s.program_pid()) + "/fd/0";
             EXPECT_EQ(system(("stty -F " + tty + " -ixon; stty -F " + tty + " ixon").c_str()), 0);
         }},
    };
    for (const char *style : {"emacs", "vi"}) {
        for (const auto &event : kEvents) {
            for (const char *typed : {"", "ab"}) {
                SCOPED_TRACE(std::string(style) + ", " + event.name + ", " + typed);
                // Text that the terminal still collects can't be shown again.
                if (style[0] == 'v' && event.name == std::string("SIGCONT") && *typed) continue;
                Session s(run(style, "1", {"actor", "echo", "> "}));
                s.wait_editing("> ");
                s.type(typed);
                s.wait_editing(std::string("> ") + typed);
                const Mode before = s.mode();
                event.happen(s);
                s.wait_asleep();
                EXPECT_EQ(s.mode(), before);
                s.type("xy\r");
                s.wait_text("<" + std::string(typed) + "xy>");
                s.wait_editing("> ");
                const auto lines = lines_of(s.output());
                EXPECT_EQ(std::count(lines.begin(), lines.end(), "<" + std::string(typed) + "xy>"),
                          1);
                EXPECT_EQ(s.row(0), std::string("> ") + typed + "xy");
                EXPECT_EQ(s.row(2), ">");
            }
        }
    }
}

TEST(Password, IsNeitherShownNorRecorded) {
    for (const char *style : {"emacs", "vi"}) {
        for (const char *how : {"asked", "silent"}) {
            SCOPED_TRACE(std::string(style) + " " + how);
            Session s(run(style, "1", {"actor", "secret", how}));
            s.wait_editing("login: ");
            s.type("me\r");
            s.wait_for("the program's echo to be off",
                       [&] { return (s.program_terminal().c_lflag & ECHO) == 0; });
            if (std::string_view(how) == "asked") {
                s.wait_text("Password: ");
                s.wait_mode(Mode::pass);
            } else {
                s.wait_asleep();
            }
            s.type("geheim");
            s.wait_asleep();
            s.type("\r");
            s.wait_text("<me,6 characters, echo off>");
            // In vi's cooked stage the terminal itself shows what is typed before anybody can know.
            if (std::string_view(how) == "asked" || std::string_view(style) == "emacs") {
                EXPECT_EQ(s.output().find("geheim"), std::string::npos) << s.screen();
            }
            s.wait_editing("> ");
            s.type("visible");
            s.wait_editing("> visible");
            s.type("\r");
            EXPECT_EQ(s.wait_exit(), 0);
            const std::string history = s.history("actor");
            EXPECT_EQ(history.find("geheim"), std::string::npos);
            EXPECT_NE(history.find("visible"), std::string::npos);
        }
    }
}

// Typed before the program has asked, it may be shown as any line is; that the program gets it and
// that its own setting of the echo holds is what counts.
TEST(Password, TypedAheadLeavesTheProgramsEchoOff) {
    for (int i = 0; i < 20; ++i) {
        Session s(run("emacs", "1", {"actor", "secret", i % 2 == 0 ? "asked" : "silent"}));
        s.wait_editing("login: ");
        s.type("me\rgeheim\r");
        s.wait_text("<me,6 characters, echo off>");
    }
}

TEST(FullScreen, TakesEveryKeyAndGivesEditingBack) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(run(style, "1", {"actor", "screen"}));
        s.wait_editing("> ");
        s.type("go\r");
        s.wait_text("full");
        s.wait_mode(Mode::pass);
        s.type("\x1b[A\x03\x04\x1c\x16");
        s.wait_text("full 1b 5b 41 03 04 1c 16");
        s.type("q");
        s.wait_editing("> ");
        s.type("back\r");
        s.wait_text("<back>");
        s.wait_editing("> ");
        EXPECT_EQ(s.row(0), "> go");
    }
}

TEST(ManyLines, APasteArrivesInOrderAndNoneIsShownTwice) {
    constexpr int kLines = 1000;
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(run(style, "1", {"actor", "count"}));
        s.wait_text("ready");
        s.wait_asleep();
        std::string paste;
        for (int i = 0; i < kLines; ++i) paste += std::to_string(i) + "\r";
        s.type(paste + "count\r");
        EXPECT_EQ(s.wait_exit(), 0);
        const auto lines = lines_of(s.output());
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "<1000 lines, 0 wrong>"), 1) << s.screen();
        for (int i = 0; i < kLines; ++i)
            EXPECT_LE(std::count(lines.begin(), lines.end(), std::to_string(i)), 1) << i;
    }
}

// In the vi style the terminal itself echoes a paste, all of it on the first row.
TEST(ManyLines, APasteAtAPromptLooksLikeLinesTypedOneByOne) {
    for (const char *style : {"emacs", "vi"}) {
        for (const bool pasted : {true, false}) {
            if (pasted && std::string_view(style) == "vi") continue;
            SCOPED_TRACE(std::string(style) + (pasted ? " pasted" : " typed"));
            // With a prompt that comes behind its line's answer, keys may be shown in between.
            Options options = run(style, "1", {"actor", "echo-whole", "> "});
            options.rows = 100;
            Session s(options);
            s.wait_editing("> ");
            std::string keys, expected;
            for (int i = 0; i < 40; ++i) {
                const std::string line = "line " + std::to_string(i);
                keys += line + "\r";
                expected += "> " + line + "\n<" + line + ">\n";
                if (!pasted) {
                    s.type(line + "\r");
                    s.wait_row(2 * i + 1, "<" + line + ">");
                    s.wait_editing("> ");
                }
            }
            if (pasted) s.type(keys);
            s.wait_row(79, "<line 39>");
            s.wait_editing("> ");
            EXPECT_EQ(s.screen(), expected + ">\n");
        }
    }
}

TEST(FullScreen, TheFirstLineFeedsOfARawProgramStayAlone) {
    Session s("emacs",
              "printf '> '; read -r x; stty -icanon -echo -opost; printf 'A\\nB\\nC'; read -r y");
    s.wait_editing("> ");
    s.type("go\r");
    s.wait_text("C");
    EXPECT_NE(s.output().find("A\nB\nC"), std::string::npos) << s.output();
}
