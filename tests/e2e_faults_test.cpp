// e2e_faults_test.cpp: what the system refuses, in start-up and while a line is edited, recorded or
// sent. A refusal costs what it concerns and no more: the terminal comes back in any case, which
// every session checks at its end.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>

#include "harness/session.h"

namespace {

using harness::Options;

// morp under limits that `shell` sets up, running a program that echoes lines.
Options limited(const std::string &shell) {
    Options options;
    options.outer = {"sh", "-c",
                     shell + "; exec \"$MORP\" -- '" + harness::helper("actor") + "' echo '> '"};
    return options;
}

struct StartCase {
    const char *name;
    const char *shell;
    const char *message;
};
constexpr StartCase kRefusedStarts[] = {
    {"no descriptor for the pseudo-terminal", "ulimit -n 6", "can't open master pty"},
    {"no descriptor for the pipe", "ulimit -n 7", "can't fork child process"},
    // The limit doesn't bind the superuser, who keeps the right to read everything here.
    {"no process",
     "[ $(id -u) -ne 0 ] || set -- setpriv --reuid=65534 --clear-groups --inh-caps=+dac_override "
     "--ambient-caps=+dac_override; exec \"$@\" prlimit --nproc=0 \"$MORP\" true",
     "can't fork child process"},
    {"no keyboard", "exec <&-", "stdin and stdout must be a terminal"},
    {"no terminal", "exec </dev/null", "stdin and stdout must be a terminal"},
    {"no screen", "exec >&-", "stdin and stdout must be a terminal"},
};

struct RecordCase {
    const char *name;
    const char *shell;
};
// The line is sent, whatever becomes of its record.
constexpr RecordCase kRefusedRecords[] = {
    {"no byte may be written to a file", "ulimit -f 0"},
    {"the history is a folder", "export Q_VXHISTFILE=/"},
    {"the folder of the history is not there", "export Q_VXHISTFILE=/nowhere/history"},
    {"a file stands where its folder should be", "touch f; export Q_VXHISTFILE=$PWD/f/history"},
    {"nobody may write in its folder", "export Q_VXHISTFILE=/proc/history"},
    {"the home folder is gone", "mkdir gone; export HOME=$PWD/gone; rmdir gone"},
};

// A program that puts a limit on the morp that runs it, and then acts; by default it echoes lines.
Session limited_later(const std::string &style, const std::string &limit,
                      const std::string &act = "echo '> '") {
    Options options;
    options.style = style;
    options.env["ASAN_OPTIONS"] = "detect_leaks=0";  // which needs descriptors of its own
    options.program = {
        "sh", "-c",
        "prlimit --pid $PPID " + limit + "; exec '" + harness::helper("actor") + "' " + act};
    return Session(options);
}

struct ModeCase {
    const char *name;
    const char *style;
    const char *program;  // after a line; writes what is refused: see refuse.cpp
    const char *message;
    int status;
};
constexpr ModeCase kRefusedModes[] = {
    {"leaving the editor's mode", "emacs", "echo 1 >refuse",
     "cannot reset tty to cooked mode : ", 2},
    {"leaving the driver's part of a line", "vi", "echo 1 >refuse",
     "cannot reset tty to cooked mode : ", 2},
    {"raw mode", "emacs", "echo 1 >refuse; stty raw; echo; sleep 99",
     "morp: can't set tty mode to raw", 1},
    {"raw mode behind vi", "vi", "echo 01 >refuse; stty raw; echo; sleep 99",
     "morp: can't set tty mode to raw", 1},
    {"no echo", "vi", "echo 1 >refuse; stty -echo; echo; sleep 99",
     "morp: can't set echo on stdin off", 1},
    {"cooked mode", "emacs",
     "stty raw; printf 'raw: '; head -c1; echo 11 >refuse; stty sane; echo; sleep 99",
     "morp: can't set tty mode to cooked", 1},
    {"echo", "vi",
     "stty raw; printf 'raw: '; head -c1; echo 101 >refuse; stty sane; echo; sleep 99",
     "morp: can't set echo on stdin on", 1},
    {"an editor's mode, once", "emacs",
     "stty raw; printf 'raw: '; head -c1; echo 1 >refuse; stty sane; printf 'again? '; read -r x; "
     "printf '<%s>' $x",
     "<two>", 0},
};

struct StateCase {
    const char *name;
    const char *style;
    const char *program;
    const char *prompt;
    const char *keys;
    const char *shown;
};
constexpr StateCase kStates[] = {
    {"in a line", "emacs", "printf '> '; cat", "> ", "abc", "> abc"},
    {"in a search", "emacs", "printf '> '; cat", "> ",
     "\x12"
     "a",
     "> ^Ra"},
    {"in a line that the driver collects", "vi", "printf '> '; cat", "> ", "abc", "> abc"},
    {"in a vi line", "vi", "printf '> '; cat", "> ", "abc\x1bixy", "> abxyc"},
    {"in a password", "emacs", "stty -echo; printf 'word: '; cat", "word: ", "abc", "word: "},
    {"in a raw program", "emacs", "stty raw; printf 'raw: '; cat", "raw: ", "abc", "raw: abc"},
    {"behind the end of input", "vi", "printf '> '; cat; echo eof; while :; do :; done", "> ",
     "\x04", "eof"},
    {"with a line that waits", "emacs", "printf '> '; sleep 999", "> ", "ab\rcd\ref", "ef"},
};

}  // namespace

TEST(Faults, ARefusedStartSaysSo) {
    for (const StartCase &c : kRefusedStarts) {
        SCOPED_TRACE(c.name);
        // The search for leaks needs descriptors of its own.
        Session s(limited(std::string("export ASAN_OPTIONS=detect_leaks=0; ") + c.shell));
        s.wait_text(c.message);
        EXPECT_EQ(s.wait_exit(), 1);
    }
}

TEST(Faults, ARefusedModeSaysSo) {
    for (const ModeCase &c : kRefusedModes) {
        SCOPED_TRACE(c.name);
        Options options;
        options.style = c.style;
        options.outer = {harness::helper("refusing/morp"), "--", "sh", "-c",
                         std::string("printf '> '; read -r x; ") + c.program};
        Session s(options);
        s.wait_editing("> ");
        s.type("one\r");
        if (strstr(c.program, "raw: ") != nullptr) {
            s.wait_text("raw: ");
            s.type("x");
        }
        if (*c.message == '<') {
            s.wait_text("again? ");
            s.wait_asleep();
            s.type("two\r");
        }
        s.wait_text(c.message);
        EXPECT_EQ(s.wait_exit(), c.status);
    }
}

TEST(Faults, ALineThatCannotBeRecordedIsSentAllTheSame) {
    for (const RecordCase &c : kRefusedRecords) {
        SCOPED_TRACE(c.name);
        Session s(limited(c.shell));
        s.wait_editing("> ");
        s.type("one\r");
        s.wait_text("<one>");
        s.wait_editing("> ");
        s.type("\x10\x15two\r");  // a look at the history, whatever it holds
        s.wait_text("<two>");
        s.wait_editing("> ");
        s.type("\x04");
        EXPECT_EQ(s.wait_exit(), 0);
    }
}

TEST(Faults, LimitsPutOnARunningMorpCostNoLine) {
    for (const char *style : {"emacs", "vi"}) {
        // No descriptor for the history nor for a look at the program's terminal; no room.
        for (const char *limit : {"--nofile=7", "--fsize=0"}) {
            SCOPED_TRACE(std::string(style) + " " + limit);
            Session s = limited_later(style, limit);
            for (const char *line : {"one", "two"}) {
                s.wait_editing("> ");
                s.type(std::string(line) + "\r");
                s.wait_text("<" + std::string(line) + ">");
            }
            s.wait_editing("> ");
            s.type("\x04");
            EXPECT_EQ(s.wait_exit(), 0);
        }
        Session s = limited_later(style, "--nofile=0");  // not even a wait is possible
        s.wait_text("select error");
        EXPECT_EQ(s.wait_exit(), 1);
    }
}

TEST(Faults, WithoutADescriptorForItsTerminalAProgramsPasswordStaysSecret) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s = limited_later(style, "--nofile=8", "secret");
        s.wait_editing("login: ");
        s.type("joe\r");
        s.wait_text("Password: ");
        s.wait_asleep();
        s.type("hush\r");
        s.wait_text("<joe,4 characters, echo off>");
        EXPECT_EQ(s.output().find("hush"), std::string::npos);
        EXPECT_EQ(s.history().find("hush"), std::string::npos);
    }
}

TEST(Faults, AHistoryWhoseFolderIsRemovedLastsForTheRun) {
    Session s(limited("mkdir d; export Q_VXHISTFILE=$PWD/d/history"));
    for (const char *keys : {"one\r", "two\r", "\x10\x10\r"}) {
        s.wait_editing("> ");
        s.type(keys);
        s.wait_text(*keys == 't' ? "<two>" : "<one>");
        std::filesystem::remove_all(s.home() + "/d");
    }
    s.wait_editing("> ");
    EXPECT_EQ(s.row(5), "<one>");
}

TEST(Faults, ATerminalThatGoesAwayEndsMorpInEveryState) {
    for (const StateCase &c : kStates) {
        SCOPED_TRACE(c.name);
        Session s(c.style, c.program);
        s.wait_text(c.prompt);
        s.wait_asleep();
        s.type(c.keys);
        s.wait_text(c.shown);
        s.hang_up();
        EXPECT_GE(s.wait_exit(), 0);  // no signal killed it
        s.wait_no_process();
    }
    Session s("emacs", "kill -STOP $$");
    EXPECT_EQ(s.wait_stopped(), SIGSTOP);
    s.hang_up();
    EXPECT_EQ(s.wait_exit(), 1);
    s.wait_no_process();
}

TEST(Faults, AHistoryThatFillsUpMeanwhileKeepsWhatItHolds) {
    // 512 bytes and no more: some of the lines don't fit.
    Options options = limited("ulimit -f 1; export Q_VXHISTFILE=$HOME/history");
    Session s(options);
    s.wait_editing("> ");
    for (int i = 0; i < 8; i++) {
        const std::string line = std::to_string(i) + std::string(99, 'x');
        s.type(line + "\r");
        s.wait_text("<" + line.substr(0, 40));
        s.wait_editing("> ");
    }
    s.type("\x04");
    EXPECT_EQ(s.wait_exit(), 0);
    const std::string file = s.file("history");
    EXPECT_LE(file.size(), 512U);
    EXPECT_NE(file.find("0" + std::string(99, 'x') + "\n"), std::string::npos);
}

TEST(Faults, DescriptorsFoundNonBlockingStayInUse) {
    // The shell's descriptors are those of its terminal, and so of everybody who shares it.
    Session s(limited("python3 -c 'import os; [os.set_blocking(i, False) for i in (0, 1, 2)]'"));
    s.wait_editing("> ");
    s.type("one\r");
    s.wait_text("<one>");
    s.wait_editing("> ");
}

TEST(Faults, ChildrenThatHoldTheTerminalDoNotHoldMorp) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(style, "trap '' HUP; sleep 1000 & echo $! >child; echo bye");
        EXPECT_EQ(s.wait_exit(), 0);
        EXPECT_NE(s.screen().find("bye"), std::string::npos);
        kill(static_cast<pid_t>(std::stol(s.file("child"))), SIGKILL);
    }
}

TEST(Faults, APasteIntoAProgramThatReadsNothingArrivesWhenItDoes) {
    // More than every queue on the way holds.
    static constexpr int kLines = 1000;
    const std::string line(63, 'p');
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(style, "echo ready; read -r first; kill -STOP $$; exec wc");
        s.wait_text("ready");
        s.type("first\r");
        EXPECT_EQ(s.wait_stopped(), SIGSTOP);
        s.fg();
        for (int i = 0; i < kLines; i++) s.type(line + "\r");
        s.wait_editing("");
        s.type("\x04");
        s.wait_text(std::to_string(kLines) + "  ");
        s.wait_text(std::to_string(kLines * (line.size() + 1)));
    }
}
