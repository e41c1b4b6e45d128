// send_test.cpp: a line on its way to a program whose terminal refuses something once. None of it
// is lost, sent twice or echoed, and the program gets its echo back.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "edit.h"
#include "pass.h"
#include "pass/keyboard.h"
#include "pass/mode.h"
#include "pass/output.h"
#include "pass/send.h"
#include "pass/waits.h"
#include "pty.h"
#include "run.h"

// State: bytes that the program's terminal takes before it refuses a write, -1 for any number;
// which change of its settings is refused, 0 for none.
static int Takes = -1;
static int Refused_change = 0;

template <typename Call>
static Call *next(const char *name) {
    return reinterpret_cast<Call *>(dlsym(RTLD_NEXT, name));
}

static bool refuse() {
    errno = EIO;
    return true;
}

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's have no good names
extern "C" ssize_t write(int fd, const void *data, size_t len) {
    static auto *const real = next<decltype(write)>("write");
    if (fd != master_fd || Takes < 0) return real(fd, data, len);
    if (Takes-- == 0 && refuse()) return -1;
    return real(fd, data, 1);
}

extern "C" int tcsetattr(int fd, int when, const termios *t) noexcept {
    static auto *const real = next<decltype(tcsetattr)>("tcsetattr");
    if (fd != STDIN_FILENO && Refused_change > 0 && --Refused_change == 0 && refuse()) return -1;
    return real(fd, when, t);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

// The program's terminal, and the user's, which is standard input.
struct Terminals {
    Terminals() : user(pty_master()) {
        const int keyboard = open(pty_dname_slave(), O_RDWR | O_NOCTTY);
        dup2(keyboard, STDIN_FILENO);
        close(keyboard);
        tty_info_get(STDIN_FILENO, &Tty_original);
        master_fd = pty_master();
        program = open(pty_dname_slave(), O_RDWR | O_NOCTTY | O_NONBLOCK);
        pty_pkt_enable(master_fd);
        fcntl(master_fd, F_SETFL, O_RDWR | O_NONBLOCK);
        Relayed_bytes = 0;
        setenv("Q_VXNOHIST", "", 1);
        setenv("Q_VXEDITOR", "emacs", 1);
        e_host = &pass_host;
        Vesk_on = Vesk_on_desired = 1;
        opt_flag = kStyleEmacs;
        assert_user_mode();
    }
    ~Terminals() {
        for (const int fd : {user, program, master_fd}) close(fd);
        edit_reset_for_test();
    }
    // As the main loop does when a line has been typed.
    int type(const std::string &line) const {
        EXPECT_EQ(write(user, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        return handle_stdin_fd(master_fd);
    }
    // Whether there is more, waited for while less than `expected` has come.
    static bool more(int fd, std::size_t come, std::size_t expected) {
        pollfd ready{fd, POLLIN, 0};
        return poll(&ready, 1, come < expected ? 60'000 : 0) > 0;
    }
    std::string received(std::size_t expected) const {
        char bytes[64];
        std::string all;
        while (more(program, all.size(), expected))
            all.append(bytes, static_cast<std::size_t>(read(program, bytes, sizeof bytes)));
        return all;
    }
    // What was shown of it: not even the echo of the newline is.
    static unsigned long shown(std::size_t expected) {
        while (more(master_fd, Relayed_bytes, expected)) (void)handle_fd_stdout(master_fd);
        return Relayed_bytes;
    }
    bool echoes() const {
        termios t{};
        return tcgetattr(program, &t) == 0 && (t.c_lflag & ECHO) != 0;
    }
    const int user;
    int program = -1;
};

}  // namespace

TEST(Send, WhatIsRefusedOfALineGoesAsALine) {
    for (const int takes : {0, 2, 4}) {  // nothing, half of the text, all but the newline
        SCOPED_TRACE(takes);
        const Terminals terminals;
        Takes = takes;
        (void)terminals.type("abcd\r");
        EXPECT_TRUE(keyboard_pending());
        EXPECT_FALSE(keyboard_wanted());
        // A line end of the program's own is not taken for the echo.
        const unsigned long printed = takes == 4 ? 2 : 0;
        EXPECT_EQ(write(terminals.program, "\n", printed / 2), static_cast<ssize_t>(printed / 2));
        EXPECT_EQ(Terminals::shown(printed), printed);
        for (int tries = 0; tries < 2 && keyboard_pending(); tries++) {
            Master_hung_up = 0;  // a while has passed
            (void)handle_pending(master_fd);
        }
        EXPECT_FALSE(keyboard_pending());
        EXPECT_TRUE(keyboard_wanted());
        EXPECT_EQ(terminals.received(5), "abcd\n");
        EXPECT_EQ(Terminals::shown(printed), printed);
        EXPECT_TRUE(terminals.echoes());
    }
}

TEST(Send, EchoThatCouldNotBePutBackIsBackBeforeTheNextKeyIsTaken) {
    const Terminals terminals;
    Refused_change = 2;
    EXPECT_EQ(terminals.type("ab\r"), 0);
    EXPECT_FALSE(terminals.echoes());
    EXPECT_EQ(terminals.type("cd\r"), 0);
    EXPECT_TRUE(terminals.echoes());
    EXPECT_EQ(terminals.received(6), "ab\ncd\n");
    EXPECT_EQ(Terminals::shown(0), 0U);
}

TEST(Send, AnEchoThatIsReadInTwoPartsIsDroppedAndNothingElseIs) {
    for (const char second : {'\n', 'x'}) {
        const Terminals terminals;
        (void)terminals.type("ab\r");
        char late = '\0';
        EXPECT_EQ(echo_to_drop("\r", 1, &late), 1);
        EXPECT_EQ(echo_to_drop(&second, 1, &late), second == '\n' ? 1 : 0);
        EXPECT_EQ(late, second == '\n' ? '\0' : '\r');
    }
}
