// e2e_start_test.cpp: from the command line to the exit status: messages, what the program finds,
// where the history goes, the terminal afterwards.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include "harness/session.h"

using harness::Mode;
using harness::Options;

static Options run(std::vector<std::string> program) {
    Options options;
    options.program = std::move(program);
    return options;
}

// morp started as a shell does with `command`, in which $MORP is its path.
static Options shell(const std::string &command) {
    Options options;
    options.outer = {"sh", "-c", command};
    return options;
}

TEST(Start, BadCallsSaySoAndLeaveTheTerminalAlone) {
    const std::string path = harness::morp();
    const struct {
        const char *name;
        std::string command, output;
    } kCases[] = {
        {"unknown option", "exec \"$MORP\" -x cat",
         path + ": invalid option -- 'x'\r\nusage: morp program\r\n"},
        {"option of the program", "exec \"$MORP\" ls -l",
         path + ": invalid option -- 'l'\r\nusage: morp program\r\n"},
        {"missing argument", "exec \"$MORP\" -m",
         path + ": option requires an argument -- 'm'\r\nusage: morp program\r\n"},
        {"input from a pipe", "true | \"$MORP\" cat",
         "morp: stdin and stdout must be a terminal\r\n"},
        {"output to a file", "exec \"$MORP\" cat >out",
         "morp: stdin and stdout must be a terminal\r\n"},
        {"under another name", "ln -s \"$MORP\" lineup; exec ./lineup cat </dev/null",
         "lineup: stdin and stdout must be a terminal\r\n"},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.name);
        Session s(shell(c.command));
        EXPECT_EQ(s.wait_exit(), 1);
        EXPECT_EQ(s.output(), c.output);
    }
}

// The order in which the end of the child, its message and the loop's first look meet is left to
// chance, so each is tried often.
TEST(Start, LastWordsOfAProgramThatEndsAtOnce) {
    for (const char *mode : {"0", "1"}) {
        for (int i = 0; i < 15; ++i) {
            Options options = run({"echo", "hi"});
            options.morp_args = {"-m", mode};
            Session s(options);
            ASSERT_EQ(s.wait_exit(), 0);
            std::string shown = s.output();
            std::erase(shown, '\r');
            ASSERT_EQ(shown, "hi\n");
        }
    }
}

TEST(Start, MuchOutputBeforeTheEndIsShownWhole) {
    Session s("emacs", "seq 20000; printf end");
    EXPECT_EQ(s.wait_exit(), 0);
    std::string expected, shown = s.output();
    for (int i = 1; i <= 20000; ++i) expected += std::to_string(i) + "\n";
    std::erase(shown, '\r');
    EXPECT_TRUE(shown == expected + "end") << shown.size() << " bytes";
}

TEST(Start, AProgramThatCannotRun) {
    for (int i = 0; i < 10; ++i) {
        Session s(run({"no-such-program"}));
        ASSERT_EQ(s.wait_exit(), 1);
        ASSERT_EQ(s.row(0),
                  "morp: execvp error when trying to create shell: No such file or directory");
    }
    Session s(run({"/"}));
    EXPECT_EQ(s.wait_exit(), 1);
    EXPECT_EQ(s.row(0), "morp: execvp error when trying to create shell: Permission denied");
}

TEST(Start, TheModeOptionChoosesWhetherLinesAreEdited) {
    const struct {
        std::vector<std::string> args;
        Mode mode;
    } kCases[] = {
        {{}, Mode::raw},          {{"-m", "1"}, Mode::raw},
        {{"-m0"}, Mode::pass},    {{"-m", "on"}, Mode::pass},
        {{"-m", "2"}, Mode::raw}, {{"-m", "0", "-m", "1"}, Mode::raw},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(testing::PrintToString(c.args));
        Options options = run({"actor", "echo", "> "});
        options.morp_args = c.args;
        Session s(options);
        s.wait_text("> ");
        s.wait_asleep();
        EXPECT_EQ(s.mode(), c.mode);
    }
}

static std::string settings_line(const termios &t) {
    std::string text = "<";
    for (const tcflag_t flags : {t.c_iflag, t.c_oflag, t.c_cflag, t.c_lflag})
        text += std::to_string(flags) + " ";
    for (const cc_t c : t.c_cc) {
        char two[8];
        (void)snprintf(two, sizeof two, "%02x", c);
        text += two;
    }
    return text + ">";
}

static void odd_terminal(termios &t) {
    t.c_iflag |= IGNPAR | IXANY;
    t.c_iflag &= ~static_cast<tcflag_t>(IXON | BRKINT);
    t.c_lflag &= ~static_cast<tcflag_t>(ECHOE);
    t.c_cc[VINTR] = 7;
    t.c_cc[VERASE] = 8;
    t.c_cc[VMIN] = 3;
    t.c_cc[VTIME] = 5;
    t.c_cc[VEOL2] = 0x1e;
}

TEST(Start, TheProgramLeadsASessionWithTheUsersSettings) {
    Options options = run({"actor", "settings"});
    options.terminal = odd_terminal;
    options.cols = 200;
    Session s(options);
    EXPECT_EQ(s.wait_exit(), 0);
    EXPECT_EQ(s.row(0), settings_line(s.terminal_at_start()));
    EXPECT_NE(s.screen().find("<leader>"), std::string::npos);
}

TEST(Start, TheProgramHasTheUsersSizeWhenItIsKnown) {
    Options options = run({"stty", "size"});
    options.rows = 33;
    options.cols = 77;
    Session known(options);
    known.wait_exit();
    EXPECT_EQ(known.row(0), "33 77");
    Session unknown(shell("stty cols 0; exec \"$MORP\" stty size"));
    unknown.wait_exit();
    EXPECT_EQ(unknown.row(0), "0 0");
}

TEST(Start, WithoutAProgramTheShellRuns) {
    const struct {
        const char *shell, *history;
    } kCases[] = {{"/bin/dash", ".dash_history"}, {nullptr, ".sh_history"}};
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.history);
        Options options;
        if (c.shell) options.env["SHELL"] = c.shell;
        Session s(options);
        s.wait_editing("$ ");
        s.type("echo $((6*7))\rexit\r");
        EXPECT_EQ(s.wait_exit(), 0);
        EXPECT_EQ(s.row(1), "42");
        EXPECT_NE(s.file(c.history).find("echo $((6*7))"), std::string::npos);
    }
}

TEST(Start, WhereTheHistoryGoes) {
    const std::string deep(180, 'd');
    const struct {
        const char *name;
        std::map<std::string, std::string> env;
        std::vector<std::string> unset;
        std::string file;  // relative to the home directory; empty for no file at all
    } kCases[] = {
        {"by the program's name", {}, {}, ".actor_history"},
        {"file of the user's choice", {{"Q_VXHISTFILE", "mine"}}, {}, "mine"},
        {"longer than any buffer", {{"Q_VXHISTFILE", deep}}, {}, deep},
        {"none wanted", {{"Q_VXNOHIST", ""}, {"Q_VXHISTFILE", "mine"}}, {}, ""},
        {"no home", {}, {"HOME"}, ""},
        {"a folder", {{"Q_VXHISTFILE", "."}}, {}, ""},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.name);
        Options options = run({"actor", "echo", "> "});
        options.env = c.env;
        options.unset = c.unset;
        Session s(options);
        s.wait_editing("> ");
        s.type("kept\r");
        s.wait_text("<kept>");
        s.wait_editing("> ");
        s.type("\x10");  // the history of the run knows it in any case
        s.wait_editing("> kept");
        if (!c.file.empty()) {
            EXPECT_NE(s.file(c.file).find("kept"), std::string::npos);
            struct stat info {};
            EXPECT_EQ(stat((s.home() + "/" + c.file).c_str(), &info), 0);
            EXPECT_EQ(info.st_mode & 0777, 0600U);
        } else {
            for (const char *name : {".actor_history", "mine"}) EXPECT_EQ(s.file(name), "");
        }
    }
}

// Where the terminal is left in another mode, the session objects when it ends.
TEST(Start, EveryEndGivesTheTerminalBack) {
    enum class How { input_ends, program_killed, terminated, hung_up };
    for (const char *style : {"emacs", "vi"}) {
        for (const char *mode : {"0", "1"}) {
            for (const How how :
                 {How::input_ends, How::program_killed, How::terminated, How::hung_up}) {
                SCOPED_TRACE(std::string(style) + " -m " + mode + " " +
                             std::to_string(static_cast<int>(how)));
                Options options = run({"actor", "echo", "> "});
                options.style = style;
                options.morp_args = {"-m", mode};
                options.terminal = odd_terminal;
                Session s(options);
                s.wait_text("> ");
                s.wait_asleep();
                s.type("x");
                s.wait_asleep();
                switch (how) {
                    case How::input_ends: {
                        s.type("\r");
                        s.wait_text("<x>");
                        s.wait_asleep();
                        s.type("\x04");
                        EXPECT_EQ(s.wait_exit(), 0);
                        EXPECT_NE(s.screen().find("<end>"), std::string::npos);
                        break;
                    }
                    case How::program_killed:
                        kill(s.program_pid(), SIGKILL);
                        EXPECT_EQ(s.wait_exit(), 0);
                        break;
                    case How::terminated:
                        s.signal(SIGTERM);
                        EXPECT_EQ(s.wait_exit(), 1);
                        break;
                    case How::hung_up:
                        s.signal(SIGHUP);
                        EXPECT_EQ(s.wait_exit(), 1);
                }
            }
        }
    }
}

TEST(Start, ATerminalThatGoesAwayEndsEverything) {
    for (const char *mode : {"0", "1"}) {
        Options options = run({"actor", "echo", "> "});
        options.morp_args = {"-m", mode};
        Session s(options);
        s.wait_text("> ");
        s.wait_asleep();
        s.hang_up();
        EXPECT_EQ(s.wait_exit(), 1);
        s.wait_no_process();
    }
}

TEST(Start, AnIgnoredHangUpStaysIgnored) {
    Session s(shell("trap '' HUP; exec \"$MORP\" actor echo '> '"));
    s.wait_editing("> ");
    s.signal(SIGHUP);
    s.type("still\r");
    s.wait_text("<still>");
    s.wait_editing("> ");
    s.type("\x04");
    EXPECT_EQ(s.wait_exit(), 0);
}

TEST(Start, EditorsWriteToTheTerminalWhereverMessagesGo) {
    for (const char *where : {"2>&-", "2>messages", "2>/dev/null"}) {
        SCOPED_TRACE(where);
        Session s(shell(std::string("exec \"$MORP\" actor echo '> ' ") + where));
        s.wait_editing("> ");
        s.type("ab");
        s.wait_editing("> ab");
        s.type("\r");
        s.wait_text("<ab>");
        EXPECT_EQ(s.file("messages"), "");
        s.wait_editing("> ");
        s.type("\x04");
        EXPECT_EQ(s.wait_exit(), 0);
    }
}

TEST(EndOfInput, TheProgramSaysWhatItHasToSay) {
    for (const char *style : {"emacs", "vi"}) {
        for (const char *input : {"a b\rc\r", ""}) {
            SCOPED_TRACE(std::string(style) + " " + input);
            Options options = run({"wc"});
            options.style = style;
            Session s(options);
            s.wait_editing("");
            s.type(input);
            s.wait_editing("");
            s.type("\x04");
            EXPECT_EQ(s.wait_exit(), 0);
            const char *counts = *input ? "      2       3       6" : "      0       0       0";
            EXPECT_NE(s.screen().find(counts), std::string::npos) << s.screen();
        }
    }
}

// Each cat ends at its end of input, and the next one reads on.
TEST(EndOfInput, AProgramThatReadsOnIsLeft) {
    for (const bool second : {false, true}) {
        Session s("emacs", "printf '> '; while :; do cat; done");
        s.wait_editing("> ");
        s.type(second ? "\x04\x04" : "\x04");
        EXPECT_EQ(s.wait_exit(), 0);
        s.wait_no_process();
    }
}

TEST(EndOfInput, AProgramThatWorksOnIsWaitedFor) {
    Session s("emacs",
              "printf '> '; cat; i=0; while [ $i -lt 300000 ]; do i=$((i+1)); done; echo \"<$i>\"");
    s.wait_editing("> ");
    s.type("\x04");
    EXPECT_EQ(s.wait_exit(), 0);
    EXPECT_NE(s.screen().find("<300000>"), std::string::npos);
}

// Time has to pass for this, as for nothing else here; a wake-up in it is a fault at any length.
static long sleeps_in_a_while(Session &s) {
    const long before = s.sleeps();
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(700);
    s.wait_for("a while", [&] { return std::chrono::steady_clock::now() > end; });
    return s.sleeps() - before;
}

TEST(Idle, NothingWakesMorp) {
    for (const char *style : {"emacs", "vi"}) {
        for (const char *mode : {"0", "1"}) {
            for (const char *typed : {"", "abc"}) {
                SCOPED_TRACE(std::string(style) + " -m " + mode + " " + typed);
                Options options = run({"actor", "echo", "> "});
                options.style = style;
                options.morp_args = {"-m", mode};
                Session s(options);
                s.wait_text("> ");
                s.type(typed);
                s.wait_text(std::string("> ") + typed);
                s.wait_asleep();
                EXPECT_EQ(sleeps_in_a_while(s), 0);
            }
        }
    }
}

TEST(Idle, AProgramWithoutItsTerminalDoesNotMakeItSpin) {
    Session s(run({"actor", "detach"}));
    s.wait_text("detached");
    EXPECT_LT(sleeps_in_a_while(s), 20);
    kill(s.program_pid(), SIGKILL);
    EXPECT_EQ(s.wait_exit(), 0);
}
