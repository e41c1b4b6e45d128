// e2e_jobs_test.cpp: keyboard signals, suspension and resumption, shells with job control inside
// and outside of morp, changes of the window's size.
#include <gtest/gtest.h>

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

static void expect_line_works(Session &s, const std::string &line) {
    s.type(line + "\r");
    s.wait_text("<" + line + ">");
    s.wait_asleep();
}

// How a suspension comes about; all have to look the same.
struct Request {
    const char *name;
    const char *style, *mode;
    void (*make)(Session &);
};
static void suspend_key(Session &s) { s.type("\x1a"); }
static void suspend_key_in_a_line(Session &s) { s.type("half\x1a"); }
static void usr2(Session &s) { s.signal(SIGUSR2); }
static void tstp(Session &s) { s.signal(SIGTSTP); }
static void stop_program(Session &s) { kill(s.program_pid(), SIGSTOP); }

static const Request kRequests[] = {
    {"key, emacs", "emacs", "1", suspend_key},
    {"key in a line, emacs", "emacs", "1", suspend_key_in_a_line},
    {"key, vi", "vi", "1", suspend_key},
    {"key in a line, vi", "vi", "1", suspend_key_in_a_line},
    {"key, passed through", "emacs", "0", suspend_key},
    {"SIGTSTP", "emacs", "1", tstp},
    {"SIGUSR2, emacs", "emacs", "1", usr2},
    {"SIGUSR2, vi", "vi", "1", usr2},
    {"SIGUSR2, passed through", "emacs", "0", usr2},
    {"program stopped", "emacs", "1", stop_program},
};

TEST(Suspend, TwiceAndBackEachTime) {
    for (const auto &request : kRequests) {
        SCOPED_TRACE(request.name);
        Session s(run(request.style, request.mode, {"actor", "echo", "> "}));
        s.wait_text("> ");
        s.wait_asleep();
        for (const char *line : {"first", "second"}) {
            request.make(s);
            EXPECT_EQ(s.wait_stopped(), SIGSTOP);
            EXPECT_EQ(s.mode(), Mode::original);
            const auto mark = s.mark();
            s.fg();
            if (std::string_view(request.mode) == "1") {
                s.wait_output("> ", mark);  // the prompt is written again
                s.wait_editing("> ");
            } else {
                s.wait_mode(Mode::pass);
            }
            expect_line_works(s, line);
        }
    }
}

TEST(Suspend, AnUnfinishedLineIsShownAgain) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(run(style, "1", {"actor", "echo", "> "}));
        s.wait_editing("> ");
        // Raw mode in both styles: in vi by way of command mode.
        s.type(std::string_view(style) == "vi" ? "ab\x1b"
                                                 "a"
                                               : "ab");
        s.wait_editing("> ab");
        s.signal(SIGUSR2);
        s.wait_stopped();
        s.resize(24, 79);  // and something of the shell's own on the row
        s.fg();
        s.wait_editing("> ab");
        s.type("c\r");
        s.wait_text("<abc>");
    }
}

TEST(Suspend, InTheBackgroundTheTerminalIsLeftAlone) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(run(style, "1", {"actor", "echo", "> "}));
        s.wait_editing("> ");
        s.type("\x1a");
        s.wait_stopped();
        s.bg();
        EXPECT_EQ(s.wait_stopped(), SIGTTOU);
        EXPECT_EQ(s.mode(), Mode::original);
        s.fg();
        s.wait_editing("> ");
        expect_line_works(s, "back");
    }
}

TEST(Suspend, AKilledJobEndsFromTheBackgroundToo) {
    for (const int sig : {SIGTERM, SIGHUP}) {
        for (const bool foreground : {false, true}) {
            for (const bool from_outside : {false, true}) {
                SCOPED_TRACE(std::to_string(sig) + (foreground ? " fg" : " bg") +
                             (from_outside ? ", stopped from outside" : ""));
                Session s(run("emacs", "1", {"actor", "echo", "> "}));
                s.wait_editing("> ");
                from_outside ? s.signal(SIGSTOP) : s.type("\x1a");
                s.wait_stopped();
                s.set_terminal(s.terminal_at_start());  // as a shell does
                s.signal(sig);
                foreground ? s.fg() : s.bg();
                EXPECT_EQ(s.wait_exit(), 1);
                EXPECT_EQ(s.mode(), Mode::original);
                s.wait_no_process();
            }
        }
    }
}

TEST(Suspend, ARequestDuringASuspensionIsDropped) {
    Session s(run("emacs", "1", {"actor", "echo", "> "}));
    s.wait_editing("> ");
    s.signal(SIGUSR2);
    s.wait_stopped();
    s.signal(SIGUSR2);
    s.fg();
    s.wait_editing("> ");
    expect_line_works(s, "running");
}

TEST(Suspend, ASizeChangedMeanwhileReachesTheProgramAndStays) {
    Session s(run("emacs", "1", {"actor", "size"}));
    s.wait_text("<24x80>");
    s.wait_editing("> ");
    s.type("\x1a");
    s.wait_stopped();
    s.resize(30, 90);
    s.fg();
    s.wait_text("<30x90>");
    s.wait_editing("> ");
    s.resize(31, 91);
    s.wait_text("<31x91>");
    s.signal(SIGTERM);
    EXPECT_EQ(s.wait_exit(), 1);
    EXPECT_EQ(s.size(), (Session::Place{31, 91}));
}

// Stopped by somebody else, whose program has put the terminal into its own mode.
TEST(Suspend, ContinuedFromOutsideItSetsItsModeAgain) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(run(style, "1", {"actor", "echo", "> "}));
        s.wait_editing("> ");
        const Mode mode = s.mode();
        s.signal(SIGSTOP);
        EXPECT_EQ(s.wait_stopped(), SIGSTOP);
        s.set_terminal(s.terminal_at_start());
        const auto mark = s.mark();
        s.fg();
        s.wait_output("> ", mark);
        s.wait_editing("> ");
        EXPECT_EQ(s.mode(), mode);
        expect_line_works(s, "again");
    }
}

TEST(KeyboardSignals, ReachTheProgramAndDropTheLine) {
    const struct {
        const char *key, *shown;
    } kKeys[] = {{"\x03", "<signal 2>"}, {"\x1c", "<signal 3>"}, {"\x1a", "<signal 20>"}};
    for (const char *style : {"emacs", "vi"}) {
        for (const char *mode : {"0", "1"}) {
            for (const auto &key : kKeys) {
                SCOPED_TRACE(std::string(style) + " -m " + mode + " " + key.shown);
                Session s(run(style, mode, {"actor", "signals"}));
                s.wait_text("> ");
                s.wait_asleep();
                s.type("dropped");
                s.wait_asleep();
                s.type(key.key);
                s.wait_text(key.shown);
                s.wait_asleep();
                // Typed in pass-through, the line is the program's terminal's; its own key drops
                // it, the suspend key only if its terminal is told, which morp does not.
                const bool kept = std::string_view(mode) == "0" && *key.key == '\x1a';
                s.type("line\r");
                s.wait_text(kept ? "line>" : "<line>");
            }
        }
    }
}

TEST(KeyboardSignals, SentToMorpTheyAreForwarded) {
    Session s(run("emacs", "1", {"actor", "signals"}));
    s.wait_editing("> ");
    for (const int sig : {SIGINT, SIGQUIT}) {
        s.signal(sig);
        s.wait_text("<signal " + std::to_string(sig) + ">");
    }
    s.wait_asleep();
    expect_line_works(s, "alive");
}

TEST(KeyboardSignals, AfterAnAbandonedLineTheNextHasARowOfItsOwn) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        // A program that ignores the key and prints nothing.
        Session s(style, "trap '' INT; printf '> '; read -r x; echo \"<$x>\"; read -r x");
        s.wait_editing("> ");
        s.type("long text");
        s.wait_editing("> long text");
        s.type("\x03");
        s.wait_asleep();
        s.type("new");
        s.wait_asleep();
        s.type("\r");
        s.wait_text("<new>");
    }
}

// The job is a process group of its own, which a signal to the shell's group would not reach.
TEST(InnerShell, InterruptAndSuspendReachTheRunningJob) {
    Session s(run("emacs", "1", {"dash", "-i"}));
    s.wait_editing("$ ");
    s.type("sleep 1000\r");
    s.wait_for("sleep to run", [&] { return s.program_runs("sleep"); });
    s.type("\x03");
    s.wait_editing("$ ");
    s.type("sleep 1000\r");
    s.wait_for("sleep to run", [&] { return s.program_runs("sleep"); });
    s.type("\x1a");
    s.wait_text("Stopped");
    s.wait_editing("$ ");
    s.type("kill %1; fg\r");
    s.wait_for("the shell again", [&] { return s.program_runs("dash"); });
    s.wait_editing("$ ");
    s.type("echo $((6*7))\r");
    s.wait_text("42");
    s.wait_editing("$ ");
    s.type("exit\r");
    EXPECT_EQ(s.wait_exit(), 0);
}

TEST(OuterShell, SuspendForegroundAndKill) {
    Options options = run("emacs", "1", {});
    options.outer = {"dash", "-i"};
    options.env["PS1"] = "shell ";
    Session s(options);
    s.wait_text("shell ");
    s.type("\"$MORP\" actor echo '> '\r");
    s.wait_editing("> ");
    for (const char *line : {"one", "two"}) {
        expect_line_works(s, line);
        s.type("\x1a");
        s.wait_text("Stopped");
        s.wait_mode(Mode::original);
        s.type("clear\rfg\r");
        s.wait_editing("> ");
    }
    s.type("\x1a");
    s.wait_text("Stopped");
    // dash continues no killed job by itself.
    s.type("kill %1; kill -CONT %1\r");
    s.wait_for("the end of morp", [&] { return !s.morp_runs(); });
    s.wait_for("the shell to say so", [&] {
        if (s.output().find("Done(1)") != std::string::npos) return true;
        s.type("\r");  // it looks before each prompt
        return false;
    });
    EXPECT_EQ(s.mode(), Mode::original);
    s.type("exit\r");
    s.wait_exit();
}

TEST(Resize, ThreeHundredInOneEditDoNoHarm) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        Session s(run(style, "1", {"actor", "echo", "> "}));
        s.wait_editing("> ");
        s.type("ab");
        s.wait_editing("> ab");
        for (int i = 0; i < 300; ++i) {
            s.resize(24, 80 + i % 2);
            if (i % 10 == 0) s.wait_asleep();
        }
        s.wait_editing("> ab");
        s.type("c\r");
        s.wait_text("<abc>");
    }
}
