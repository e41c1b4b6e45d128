// harness_test.cpp: the harness itself, with programs other than morp in morp's place.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string>

#include "harness/screen.h"
#include "harness/session.h"

using harness::Options;

// `outer` in place of morp.
static Options instead(std::vector<std::string> outer) {
    Options options;
    options.outer = std::move(outer);
    return options;
}

TEST(Harness, ScreenShowsWhatATerminalWould) {
    harness::Screen screen(3, 10);
    screen.feed("one\r\ntwo\b\bx\x1b[1;7Hat\r\n\n\nend\xe9");
    EXPECT_EQ(screen.row(0), "txo");
    EXPECT_EQ(screen.row(2), "end\xc3\xa9");
    int row = -1, col = -1;
    screen.cursor(row, col);
    EXPECT_EQ(row, 2);
    EXPECT_EQ(col, 4);
}

TEST(Harness, KeysOutputAndStatus) {
    Session s(
        instead({"sh", "-c",
                 "stty -echo; printf 'name? '; read -r x; stty echo; printf \"<$x>\"; exit 7"}));
    s.wait_text("name? ");
    const auto mark = s.mark();
    s.type("me\r");
    EXPECT_EQ(s.wait_exit(), 7);
    EXPECT_EQ(s.output_since(mark), "<me>");
    EXPECT_EQ(s.row(0), "name? <me>");
    EXPECT_EQ(s.cursor(), (Session::Place{0, 10}));
}

TEST(Harness, AModeLeftBehindFails) {
    EXPECT_NONFATAL_FAILURE(
        {
            Session left(instead({"stty", "-echo"}));
            left.wait_exit();
        },
        "left in another mode");
}

TEST(Harness, AJobStopsAndGoesOn) {
    Session s(
        instead({"sh", "-c", "trap 'echo continued' CONT; kill -STOP $$; read -r x; exit 3"}));
    EXPECT_EQ(s.wait_stopped(), SIGSTOP);
    s.bg();
    s.wait_text("continued");
    s.fg();
    s.type("\r");
    EXPECT_EQ(s.wait_exit(), 3);
}

TEST(Harness, SizesReachTheJob) {
    Session s(instead({"actor", "size"}));
    s.wait_text("<24x80>");
    s.resize(30, 100);
    s.wait_text("<30x100>");
    s.type("\x04");
    s.wait_exit();
}

TEST(Harness, TakingTheTerminalAwayHangsUp) {
    Session s(instead({"sleep", "1000"}));
    s.hang_up();
    EXPECT_EQ(s.wait_exit(), -SIGHUP);
}

TEST(Harness, WaitingForNothingEndsWithTheJob) {
    Session s(instead({"echo", "hi"}));
    try {
        s.wait_text("never");
        ADD_FAILURE() << "text that never came was seen";
    } catch (const std::runtime_error &error) {
        EXPECT_NE(std::string(error.what()).find("ended before"), std::string::npos);
        EXPECT_NE(std::string(error.what()).find("hi\\r"), std::string::npos);
    }
}

TEST(Harness, ReportsOfSanitizersFail) {
    EXPECT_NONFATAL_FAILURE(
        {
            Session s(instead(
                {"sh", "-c", "p=${ASAN_OPTIONS#log_path=}; echo overflow >\"${p%%:*}.1\""}));
            s.wait_exit();
        },
        "overflow");
}

// Orphans of the job are killed with it, and the wait for the last process sees them until then.
TEST(Harness, NoProcessStaysBehind) {
    pid_t orphan = 0;
    {
        Session s(instead(
            {"sh", "-c",
             "(trap '' HUP; exec sleep 1000 </dev/null >/dev/null 2>&1) & echo $!; read -r x"}));
        s.wait_for("the orphan's number",
                   [&] { return s.output().find('\n') != std::string::npos; });
        orphan = std::stoi(s.output());
        EXPECT_EQ(kill(orphan, 0), 0);
    }
    EXPECT_EQ(kill(orphan, 0), -1);
}
