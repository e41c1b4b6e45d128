// keys.cpp: keys with read-ahead and push-back, and the editors' output, which is gathered here
// until an editor waits, rings or changes the mode.
#include <termios.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "edit.h"
#include "edit/host.h"
#include "edit/text.h"
#include "edit_internal.h"
#include "extended.h"
#include "wait.h"

static const char bellchr[2] = {kBell, '\0'};

// State: bytes queued for the terminal.
static char Out_buf[1024];
static std::size_t Out_len = 0;

const EditHost *e_host = nullptr;
char e_taken[kLineBuffer];
int e_taken_len = -1;
int e_nothing = 0;
int e_gone = 0;
int e_keys_taken = 0;

void edit_reset_keys() {
    Out_len = 0;
    e_taken_len = -1;
    e_nothing = e_gone = e_keys_taken = 0;
}

void edit_reset_for_test() {
    edit_reset_terminal();
    edit_reset_keys();
    edit_reset_follower();
    edit_reset_prime();
    edit_reset_out_row();
}

static void write_queued() {
    if (Out_len == 0) return;
    const std::size_t len = Out_len;
    Out_len = 0;
    // A terminal that is gone is reported by the read that follows, or by SIGHUP.
    (void)screen_write(Screen::editor, Out_buf, len);
}

void e_write(const char *data, std::size_t len) {
    while (len > 0) {
        if (Out_len == sizeof Out_buf) write_queued();
        const std::size_t n = std::min(len, sizeof Out_buf - Out_len);
        memcpy(Out_buf + Out_len, data, n);
        Out_len += n;
        data += n;
        len -= n;
    }
}

void e_putchar(int c) {
    // Overstrikes a blank where a terminal would not show an underscore.
    if (c == '_' && Extended == 0) {
        e_write(" \b_", 3);
        return;
    }
    const char byte = static_cast<char>(c);
    e_write(&byte, 1);
}

void e_flush() {
    if (Out_len == 0) return;  // what went before was drained when it was written
    write_queued();
    screen_drain();
}

void e_ringbell() {
    e_write(bellchr, 1);
    write_queued();
}

bool e_refused(int *at) {
    const int found = e_host->refused != nullptr ? e_host->refused(editb.e_inbuf, text_len()) : -1;
    if (found < 0) return false;
    *at = found;
    e_ringbell();
    return true;
}

void e_crlf() {
    e_putchar('\n');
    e_flush();
}

void e_ungetchar(int c) {
    if (editb.e_index < kLookAhead) editb.e_lbuf[editb.e_index++] = c;
}

// The keyboard has read as ended, by its end-of-input key or because it is gone.
static void note_end() {
    struct termios t = {};
    if (tcgetattr(editb.e_fd, &t) != 0) e_gone = 1;
}

// Results of read_keys beside the number of keys.
static constexpr int kReadFailed = -1;
static constexpr int kReadLate = -2;

// Reads up to `size` keys. Returns their number, 0 when the edit has to end, kReadFailed, or
// kReadLate when none has come for `timeout_ns`.
static int read_keys(unsigned char *keys, int size, long timeout_ns) {
    // A terminal that is gone fails at once, so this many tries take no time.
    constexpr int kAttempts = 100;
    if (e_host->look_for_key()) {
        const ssize_t n = keyboard_read(keys, static_cast<std::size_t>(size));
        if (n > 0) return static_cast<int>(n);
    }
    for (int failed = 0; failed < kAttempts;) {
        switch (e_host->wait_key(timeout_ns)) {
            case KeyWait::interrupted:
            case KeyWait::taken:
                return 0;
            case KeyWait::late:
                return kReadLate;
            case KeyWait::ready:
                break;
        }
        const ssize_t n = keyboard_read(keys, static_cast<std::size_t>(size));
        if (n == 0) note_end();
        if (n >= 0) return static_cast<int>(n);
        if (errno != EAGAIN && errno != EINTR) failed++;
    }
    return kReadFailed;
}

// The frames it crosses, the editor's, own nothing.
[[noreturn]] static void leave_edit(int how) {
    longjmp(editb.e_env, how);  // NOLINT(cert-err52-cpp)
}

// In vi style a NUL is the end of the input, unless every key is the editor's.
static bool ends_input(int key) { return key == 0 && e_driver_begins(); }

// Puts `count` keys just read on the empty stack. What ends the input is lost with what follows,
// but behind a ^V it may turn out to be quoted, as the first key is when `quoted`.
static void push_keys(const unsigned char *keys, int count, bool quoted) {
    for (int i = 0; i < count; i++) {
        const int key = e_unmark(keys[i]);
        if (ends_input(key) && !quoted) {
            count = i;
            break;
        }
        editb.e_lbuf[i] = key;
        quoted = key == ctrl('V');
    }
    std::reverse(editb.e_lbuf, editb.e_lbuf + count);
    editb.e_index = count;
}

// False when no key has come for `timeout_ns`.
static bool fill_stack(bool quoted, long timeout_ns) {
    e_view->make_up();
    editb.e_inmacro = 0;
    unsigned char keys[kReadAhead];
    // Within the line a burst saves redrawing; at its end one key at a time leaves what is typed
    // after the newline in the terminal.
    const int count = read_keys(keys, e_view->within_line() ? kReadAhead : 1, timeout_ns);
    if (count == kReadLate) return false;
    if (count > 0) push_keys(keys, count, quoted);
    if (editb.e_index == 0) leave_edit(count < 0 ? kEditFailed : kEditEnd);
    return true;
}

static int take_key(bool quoted, long timeout_ns) {
    if (editb.e_index == 0 && !fill_stack(quoted, timeout_ns)) return kNoKey;
    e_keys_taken++;
    return editb.e_lbuf[--editb.e_index];
}

static int newline_for_return(int key) { return key == '\r' ? '\n' : key; }

bool e_key_held() {
    if (editb.e_index > 0 && ends_input(editb.e_lbuf[editb.e_index - 1])) editb.e_index = 0;
    return editb.e_index > 0;
}

bool e_key_comes() {
    if (!e_key_held()) return fill_stack(false, 0);
    const KeyWait how = e_host->wait_key(0);
    if (how == KeyWait::interrupted || how == KeyWait::taken) leave_edit(kEditEnd);
    return true;
}

int e_getbyte(long timeout_ns) {
    (void)e_key_held();  // drops what can't be delivered
    return take_key(false, timeout_ns);
}

int e_getchar() { return newline_for_return(e_getbyte(kNoTimeout)); }

int e_getquoted() { return newline_for_return(take_key(true, kNoTimeout)); }

long e_read_cooked(int, void *buf, std::size_t len) {
    for (int i = 0; i < kInterruptions && progdone == 0; i++) {
        const ssize_t n = keyboard_read(buf, len);
        if (n == 0) note_end();
        if (n < 0 && errno == EAGAIN) e_nothing = 1;
        if (n >= 0 || errno != EINTR) return n;
    }
    errno = EINTR;
    return -1;
}
