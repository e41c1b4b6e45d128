// tty.cpp: see tty.h. What a mode changes is said in two pure functions, tty_make_raw and
// tty_make_cooked; the rest reads, compares, applies. Only tty_apply may sleep: in the background,
// where SIGTERM and SIGHUP are served.
#include "tty.h"

#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>

#include "morp_defs.h"
#include "os.h"
#include "wait.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp tty 1.0";

tty_info Tty_original;
tty_info suspended_tty;

void dump_termios(const char *, const struct termios *) {}
void dump_termio(const char *, const struct termio *) {}

int tty_info_get(int fd, tty_info *tty_i) {
    tty_info temp = {};
    if (tcgetattr(fd, &temp.tty_termios) != 0) return -1;
    if (ioctl(fd, TIOCGWINSZ, &temp.tty_winsize) != 0) temp.tty_winsize = {};
    *tty_i = temp;
    return 0;
}

int tty_info_change(int fd, tty_info *tty_i, int) {
    if (tty_apply(fd, &tty_i->tty_termios) != 0) return -1;
    if (tty_i->tty_winsize.ws_col == 0) return 0;
    return ioctl(fd, TIOCSWINSZ, &tty_i->tty_winsize) == 0 ? 0 : -1;
}

int tty_info_set(int fd, tty_info *tty_i) { return tty_info_change(fd, tty_i, 0); }

// Bits of `mask` in `word` become those of `model`.
static void take_bits(tcflag_t &word, tcflag_t model, tcflag_t mask) {
    word = (word & ~mask) | (model & mask);
}

void tty_make_raw(struct termios *t) {
    t->c_iflag &= ~static_cast<tcflag_t>(IGNPAR | PARMRK | INLCR | IGNCR | ICRNL | INPCK | ISTRIP |
                                         kIuclc | IXON);
    t->c_iflag |= BRKINT;
    t->c_oflag &= ~static_cast<tcflag_t>(OPOST);
    t->c_cflag &= ~static_cast<tcflag_t>(PARENB);
    t->c_lflag &= ~static_cast<tcflag_t>(ICANON | ISIG | kXcase);
    t->c_cc[VMIN] = 1;
    t->c_cc[VTIME] = 0;
}

void tty_make_cooked(struct termios *t) {
    const struct termios &user = Tty_original.tty_termios;
    t->c_iflag &= ~static_cast<tcflag_t>(IGNPAR | PARMRK | INLCR | IGNCR);
    t->c_iflag |= BRKINT | ICRNL;
    take_bits(t->c_iflag, user.c_iflag, INPCK | ISTRIP | kIuclc | IXON);
    take_bits(t->c_oflag, user.c_oflag, OPOST);
    take_bits(t->c_cflag, user.c_cflag, PARENB);
    t->c_lflag |= ICANON;
    take_bits(t->c_lflag, user.c_lflag, ISIG | kXcase);
    t->c_lflag &= ~static_cast<tcflag_t>(ECHOCTL);
    std::copy(std::begin(user.c_cc), std::end(user.c_cc), std::begin(t->c_cc));
}

bool tty_same(const struct termios &a, const struct termios &b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag &&
           std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc));
}

int tty_raw(int fd) {
    struct termios now = {};
    if (tcgetattr(fd, &now) != 0) return -1;
    struct termios wanted = now;
    dump_termios("tty_raw/BEFORE", &now);
    tty_make_raw(&wanted);
    dump_termios("tty_raw/AFTER", &wanted);
    if (tty_same(now, wanted)) return 0;
    if (tty_apply(fd, &wanted) != 0) return -1;
    (void)tcflow(fd, TCOON);  // the user may have stopped the output
    return 0;
}

int tty_cooked(int fd) {
    struct termios now = {};
    if (tcgetattr(fd, &now) != 0) return -1;
    struct termios wanted = now;
    dump_termios("tty_cooked/BEFORE", &now);
    tty_make_cooked(&wanted);
    dump_termios("tty_cooked/AFTER", &wanted);
    return tty_same(now, wanted) ? 0 : tty_apply(fd, &wanted);
}

int tty_mode_noedit(int fd, tcflag_t held) {
    struct termios t = {};
    if (tcgetattr(fd, &t) != 0) return -1;
    const tcflag_t lflag = t.c_lflag | held;
    return (lflag & ICANON) != 0 && (lflag & ECHO) != 0 ? 0 : 1;
}

int tty_echo_get(int fd, int *val) {
    struct termios t = {};
    if (tcgetattr(fd, &t) != 0) {
        perror("tty_echo_get/tcgetattr");
        return -1;
    }
    *val = (t.c_lflag & ECHO) != 0 ? 1 : 0;
    return 0;
}

int tty_echo_set(int fd, int val) {
    struct termios t = {};
    if (tcgetattr(fd, &t) != 0) {
        perror("tty_echo_get/tcgetattr");
        return -1;
    }
    if (((t.c_lflag & ECHO) != 0) == (val != 0)) return 0;
    t.c_lflag ^= ECHO;
    if (tty_apply(fd, &t) != 0) {
        perror("tty_echo_get/tcsetattr");
        return -1;
    }
    return 0;
}

int tty_startstop_get(int fd, int *start, int *stop) {
    struct termios t = {};
    if (tcgetattr(fd, &t) != 0) return -1;
    *start = t.c_cc[VSTART];
    *stop = t.c_cc[VSTOP];
    return 0;
}

int tty_startstop_set(int fd, int start, int stop) {
    errno = 0;
    const long disabled = fpathconf(fd, _PC_VDISABLE);
    if (disabled == -1 && errno != 0) return -1;
    struct termios t = {};
    if (tcgetattr(fd, &t) != 0) return -1;
    t.c_cc[VSTART] = static_cast<cc_t>(start == -1 ? disabled : start);
    t.c_cc[VSTOP] = static_cast<cc_t>(stop == -1 ? disabled : stop);
    return tty_apply(fd, &t);
}

// State: what standard input was given last; nothing before.
static struct termios Applied;

bool tty_is_untouched() {
    struct termios now = {};
    return tcgetattr(STDIN_FILENO, &now) == 0 && tty_same(now, Applied);
}

bool tty_in_background() {
    const pid_t group = tcgetpgrp(STDIN_FILENO);
    return group > 0 && group != getpgrp();
}

int tty_apply(int fd, const struct termios *t) {
    const bool may_stop = fd == STDIN_FILENO && tty_in_background();
    int result = -1;
    for (int i = 0; i < kInterruptions; i++) {
        // From the background the call stops the process; ending it must still be possible.
        if (may_stop) wait_window_open(kWindowEnd);
        result = tcsetattr(fd, TCSANOW, t);
        const int err = errno;
        if (may_stop) wait_window_close();
        errno = err;
        if (result == 0 || err != EINTR) break;
    }
    if (result == 0 && fd == STDIN_FILENO) Applied = *t;
    return result;
}

int tty_special(const struct termios &t, int index) {
    const cc_t c = t.c_cc[index];
    return c == _POSIX_VDISABLE ? kNoKey : c;
}
