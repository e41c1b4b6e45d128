// e2e_faults_test.cpp: what the system refuses, in start-up and while a line is edited, recorded or
// sent. A refusal costs what it concerns and no more: the terminal comes back in any case, which
// every session checks at its end.
#include <gtest/gtest.h>

#include <csignal>
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
    {"no temporary file either", "export Q_VXHISTFILE=/nowhere/history TMPDIR=/nowhere"},
    {"the home folder is gone", "mkdir gone; export HOME=$PWD/gone; rmdir gone"},
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
