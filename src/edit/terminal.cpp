// terminal.cpp: the editing modes of the user's terminal. Raw delivers each key; the alternative
// mode (vi's first stage) lets the driver collect the line. Between lines and while output is
// relayed the terminal stays in the mode that the style reads in: in a cooked moment erase, kill
// and quote keys would be eaten, end-of-file become NUL and a key be echoed twice.
#include <termios.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "edit.h"
#include "edit/row.h"
#include "extended.h"
#include "tty.h"
#include "utils.h"
#include "wait.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp edit 1.0";

edit editb;
int opt_flag = 0;
const EditView *e_view = nullptr;

// State: set by every switch of mode, zero at the start.
static struct termios ttyparm;   // the user's settings
static struct termios nttyparm;  // those of raw or alternative mode
static bool Stop_keys_taken = false;
static int Marked = 0;  // unread bytes that the driver had collected before the switch
static const char badcooked_msg[32] = "cannot reset tty to cooked mode";

void edit_reset_terminal() {
    e_view = nullptr;
    editb = {};
    Marked = 0;
    Stop_keys_taken = false;
}

static int local_tcget(int fd, int, struct termios *t) { return tcgetattr(fd, t); }

static int local_tcset(int fd, int, const struct termios *t) { return tty_apply(fd, t); }

static struct termios raw_of(const struct termios &user) {
    struct termios t = user;
    t.c_iflag &= ~static_cast<tcflag_t>(IGNPAR | PARMRK | INLCR | IGNCR | ICRNL);
    t.c_iflag |= BRKINT;
    if (Stop_keys_taken) t.c_iflag &= ~static_cast<tcflag_t>(IXON);
    t.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    t.c_cc[VTIME] = 0;
    t.c_cc[VMIN] = 1;
    return t;
}

static struct termios alternative_of(const struct termios &user) {
    struct termios t = user;
    t.c_iflag &= ~static_cast<tcflag_t>(IGNCR | ICRNL);
    t.c_iflag |= INLCR;
    // Without IEXTEN there is no VEOL2.
    t.c_lflag |= ECHOE | ECHOK | IEXTEN;
    t.c_cc[VEOF] = kEscape;
    t.c_cc[VEOL] = '\r';
    t.c_cc[VEOL2] = user.c_cc[VEOF];
    return t;
}

// In extended mode every key is the editor's.
bool e_driver_begins() { return opt_flag == kStyleVi && Extended == 0; }

static void take_special_characters() {
    const auto special = [](int name, bool wanted) {
        return wanted ? tty_special(ttyparm, name) : kNoKey;
    };
    const bool own = opt_flag == kStyleVi && !e_driver_begins();
    editb.e_eof = special(VEOF, true);
    editb.e_erase = special(VERASE, true);
    editb.e_kill = special(VKILL, true);
    editb.e_werase = special(VWERASE, own);
    editb.e_lnext = special(VLNEXT, own);
    editb.e_reprint = special(VREPRINT, own);
}

// Applies `t`, whose user settings are in ttyparm, as mode `mode`. Returns 0, or -1.
static int enter_mode(int fd, const struct termios &t, int mode) {
    take_special_characters();
    nttyparm = t;
    if (local_tcset(fd, 0, &nttyparm) != 0) return -1;
    if (mode == kTtyRaw) {
        if (editb.e_raw == kTtyAlt) Marked = keyboard_waiting();
        (void)tcflow(fd, TCOON);  // in case the user had stopped the output
    }
    // Speed codes rise with the speed.
    editb.e_ttyspeed = cfgetospeed(&ttyparm) <= B600 ? 1 : 2;
    editb.e_raw = mode;
    return 0;
}

void e_hold_keys(unsigned char *keys, int n) {
    unsigned char *end = std::remove_if(keys, keys + n, [](unsigned char &key) {
        key = static_cast<unsigned char>(e_unmark(key));
        return key == 0 && opt_flag == kStyleVi;
    });
    const int count = static_cast<int>(end - keys);
    std::move_backward(editb.e_lbuf, editb.e_lbuf + editb.e_index,
                       editb.e_lbuf + editb.e_index + count);
    std::reverse_copy(keys, end, editb.e_lbuf);
    editb.e_index += count;
}

static void take_ahead() {
    unsigned char keys[kReadAhead];
    const int room = kReadAhead - editb.e_index;
    if (room <= 0) return;
    const ssize_t n = keyboard_read(keys, static_cast<std::size_t>(room));
    if (n > 0) e_hold_keys(keys, static_cast<int>(n));  // else none, or gone: the next wait sees it
}

int e_setraw(int fd) {
    if (editb.e_raw == kTtyRaw) return 0;
    (void)fflush(stdout);
    if (editb.e_raw != kTtyAlt) {
        struct termios user = {};
        if (local_tcget(fd, 0, &user) != 0 || (user.c_lflag & ECHO) == 0) return -1;
        ttyparm = user;
    }
    return enter_mode(fd, raw_of(ttyparm), kTtyRaw);
}

// From a mode that delivers single keys: keys that wait there, or come while the mode changes,
// would be handed on by the driver as a piece of line. They go to the stack, and the terminal stays
// raw.
static int raw_to_alternative(int fd) {
    take_ahead();
    if (editb.e_index == 0) {
        if (enter_mode(fd, alternative_of(ttyparm), kTtyAlt) != 0) return -1;
        if (keyboard_waiting() == 0) return 0;
    }
    const int result = enter_mode(fd, raw_of(ttyparm), kTtyRaw);
    take_ahead();
    return result;
}

int e_setalt(int fd) {
    if (editb.e_raw == kTtyAlt) return 0;
    if (editb.e_raw == kTtyRaw) return raw_to_alternative(fd);
    struct termios user = {};
    if (local_tcget(fd, 0, &user) != 0 || (user.c_lflag & ECHO) == 0) return -1;
    ttyparm = user;
    return enter_mode(fd, alternative_of(ttyparm), kTtyAlt);
}

void e_take_typed(int fd) {
    if (editb.e_raw != kTtyAlt || tty_in_background()) return;
    // Of text without a line end the driver tells nothing. Output that the user has stopped stays
    // so. Mostly there is nothing, and each line pays for this: no more calls than it takes.
    const struct termios raw = raw_of(ttyparm);
    if (tcsetattr(fd, TCSANOW, &raw) != 0) return;
    Marked = keyboard_waiting();
    if (Marked == 0 && tcsetattr(fd, TCSANOW, &nttyparm) == 0 && keyboard_waiting() == 0) return;
    editb.e_raw = kTtyRaw;
    (void)e_setalt(fd);
}

int e_take_echoed() {
    const int echoed = Marked;
    const int held = editb.e_index;
    take_ahead();
    if (echoed > editb.e_index - held) return -1;
    int columns = 0;
    bool left = false;
    for (int i = 0; i < echoed; i++) {
        const int key = editb.e_lbuf[editb.e_index - 1 - i];
        if (key == '\r')
            left = true;
        else if (is_printable(key))
            columns++;
        else if (key != kEscape)
            return -1;
    }
    return left && columns > 0 ? -1 : columns;
}

void e_setcooked(int fd) {
    if (editb.e_ttyspeed == 0 || editb.e_raw == kTtyCooked) {
        editb.e_raw = kTtyCooked;
        return;
    }
    if (local_tcset(fd, 0, &ttyparm) == 0) {
        editb.e_raw = kTtyCooked;
    } else if (errno != EBADF && errno != ENOTTY && errno != EIO) {
        // Settings that were in force once may still be taken.
        (void)tty_info_change(fd, &Tty_original, 1);
        e_failed(badcooked_msg, nullptr);
    }
}

void e_end_edit(int) {
    if (e_driver_begins()) take_ahead();
}

int e_wanted_mode() {
    return e_view == nullptr && e_driver_begins() && editb.e_index == 0 ? kTtyAlt : kTtyRaw;
}

int e_assert_mode(int fd) {
    const int mode = e_wanted_mode();
    const bool raw = mode == kTtyRaw;
    struct termios current = {};
    if (local_tcget(fd, 0, &current) != 0) return -1;
    struct termios user = current;
    tty_make_cooked(&user);
    user.c_lflag |= ECHO;
    const struct termios wanted = raw ? raw_of(user) : alternative_of(user);
    if (editb.e_raw == mode && tty_same(current, wanted)) return 0;
    ttyparm = user;
    if (raw) return enter_mode(fd, wanted, kTtyRaw);
    if ((current.c_lflag & ICANON) == 0) return raw_to_alternative(fd);
    return enter_mode(fd, wanted, kTtyAlt);
}

// Output that is stopped goes on as the mode changes.
void e_take_stop_keys(bool taken) {
    Stop_keys_taken = taken;
    if (editb.e_raw == kTtyRaw) (void)e_assert_mode(editb.e_fd);  // else the next wait sees to it
}

void e_leave_editing(int) {
    if (editb.e_raw == kTtyAlt) Marked = keyboard_waiting();
    editb.e_raw = kTtyCooked;
}

int e_unmark(int c) {
    if (Marked == 0) return c;
    Marked--;
    return c == 0 ? kEscape : c;
}

int e_columns() { return Tty_original.tty_winsize.ws_col; }

// In extended mode the terminal is asked, and COLUMNS only where it doesn't know.
int e_window(int) {
    constexpr int kUsual = 79;
    constexpr int kTooNarrow = 5;
    const int known = Extended != 0 ? e_columns() : 0;
    if (known > 0) return known > kTooNarrow ? std::min(known - 1, kWidestWindow) : kUsual;
    const long narrowest = Extended != 0 ? kTooNarrow : 20;
    const long widest = Extended != 0 ? kWidestWindow : 160;
    const char *columns = getenv("COLUMNS");
    if (columns == nullptr) return kUsual;
    const long n = strtol(columns, nullptr, 10);
    return static_cast<int>(std::clamp(n, narrowest + 1, widest + 1) - 1);
}
