// keyboard.cpp: the user's keys on their way to the program, the in-band toggle of editing, and the
// keyboard's signals. Keys are read between two waits; the editors, and a line on its way, have
// waits of their own.
#include "keyboard.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "edit.h"
#include "edit/decode.h"
#include "edit/prompt.h"
#include "editlib.h"
#include "end.h"
#include "extended.h"
#include "marks.h"
#include "mode.h"
#include "os.h"
#include "output.h"
#include "pace.h"
#include "pass.h"
#include "proc.h"
#include "run.h"
#include "send.h"
#include "tty.h"
#include "wait.h"
#include "waits.h"

static const char det_str[5] = "~~;1";  // toggles editing
static constexpr int det_str_len = 4;

// State: keys not yet given to the program: a held beginning of the toggle, what the master did not
// take, and the new input. det_ptr is past a toggle just recognised.
static char det_buf[2 * kPassBuffer];
static int det_len = 0;
static char *det_ptr = det_buf;
static int matching_det_str = 0;
static bool Det_line = false;  // what the master did not take is a finished line, or its rest

unsigned long Signals_forwarded = 0;

// What is pending when the keyboard is read, and a line taken from an editor.
static_assert(sizeof det_buf >= kPassBuffer + kLineBuffer);

bool keyboard_wanted() { return det_len <= Limits.capacity && !Det_line; }

bool keyboard_pending() { return det_len > 0 && matching_det_str == 0; }

int handle_signal_general(int fd, int sig) {
    if (Child_pid <= 0) return 0;
    Signals_forwarded++;
    kread_forget();
    // The driver has dropped the text that it held, and left it on the row.
    if (Vesk_on != 0 && editb.e_raw == kTtyAlt) e_row_stale = 1;
    pid_t group = 0;
    const bool known = ioctl(fd, TIOCGPGRP, &group) == 0 && group > 1;
    if (!known) group = Child_pid;
    // The program leads a session of its own, so the system drops a stop request that nobody
    // handles.
    if (sig == SIGTSTP && group == Child_pid && program_stops_by_default() && can_be_continued()) {
        (void)kill(-Child_pid, SIGSTOP);
    } else if (!known || !os_signal_foreground(fd, sig)) {
        // Without a foreground group that would succeed and reach nobody.
        (void)kill(-group, sig);
    }
    if (Det_line) det_len = 0;
    Det_line = false;
    line_forget(fd);
    return 0;
}

// Reads an edited line into buff. Returns its length, 0 for none.
static int read_line(int fd) {
    e_taken_len = -1;
    e_nothing = e_gone = e_keys_taken = 0;
    Input_flushed = 0;
    const int n = kread(STDIN_FILENO, buff, Limits.capacity);
    if (n < 0) fatal_message("morp: kread error from stdin");
    if (n > 0) {
        end_of_input_forget();
        if (buff[n - 1] == '\n')
            out_row_new();
        else
            out_row_forget();  // it stays on the row
        return n;
    }
    if (progdone != 0) {
        handle_signal_general(fd, progdone);
        progdone = 0;
    } else if (e_taken_len >= 0) {
        end_of_input_forget();
        memcpy(buff, e_taken, static_cast<std::size_t>(e_taken_len));
        return e_taken_len;
    } else if (e_nothing == 0) {
        (void)handle_pending(fd);
        return end_of_input(fd, buff);
    }
    return 0;
}

// Reads keys as typed into buff; those that an edit left over come first. Returns their number.
static int read_keys() {
    int n = 0;
    end_of_input_forget();
    while (editb.e_index > 0 && n <= Limits.capacity - kKeyBytes) {
        n += decode_bytes_of(editb.e_lbuf[--editb.e_index], buff + n);
    }
    if (n > 0) return marks_take_out(buff, n);
    errno = 0;
    n = static_cast<int>(keyboard_read(buff, static_cast<std::size_t>(Limits.capacity)));
    if (n > 0) {
        for (int i = 0; i < n; i++) buff[i] = static_cast<char>(e_unmark(byte_of(buff[i])));
        return marks_take_out(buff, n);
    }
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
    fatal_message("morp: read error from stdin");
}

static void detect_toggle() {
    det_ptr = det_buf;
    const int compared = std::min(det_len, det_str_len);
    const bool equal =
        compared > 0 && memcmp(det_buf, det_str, static_cast<std::size_t>(compared)) == 0;
    matching_det_str = equal && det_len < det_str_len ? 1 : 0;
    if (!equal || det_len < det_str_len) return;
    if (opt_flag != 0) want_editing(Vesk_on_desired ^ 1);
    det_len -= det_str_len;
    det_ptr += det_str_len;
}

// Moves what is left from det_ptr on to the start of det_buf.
static void keep_rest(int done) {
    det_len = std::max(det_len - done, 0);  // a keyboard signal may have dropped it meanwhile
    if (det_len > 0) memmove(det_buf, det_ptr + done, static_cast<std::size_t>(det_len));
    det_ptr = det_buf;
}

// `edited`: it is a finished line, and what the master doesn't take of it stays one.
static int deliver_pending(int fd, bool edited) {
    const int done = det_len > 0 ? write_to_pty(fd, det_ptr, det_len, edited ? 1 : 0) : 0;
    keep_rest(done > 0 ? done : 0);
    Det_line = edited && det_len > 0;
    if (done < 0) Master_hung_up = 1;  // tried again in a while
    return done < 0 ? -1 : 0;
}

// Gives the pending bytes to the program. The user's suspend key as the last of the new ones is a
// request to stop, not a byte.
static int deliver(int fd, bool edited) {
    const int suspend_key = tty_special(Tty_original.tty_termios, VSUSP);
    const bool stop = byte_of(det_ptr[det_len - 1]) == suspend_key;
    if (stop) det_len--;
    const int result = deliver_pending(fd, edited);
    if (stop) handle_signal_general(fd, SIGTSTP);
    return result;
}

int handle_pending(int fd) { return keyboard_pending() ? deliver_pending(fd, Det_line) : 0; }

// The signal that `key` asks for on the user's terminal, 0 for none.
static int signal_of_key(int key) {
    const struct termios &user = Tty_original.tty_termios;
    if ((user.c_lflag & ISIG) == 0) return 0;
    if (key == tty_special(user, VINTR)) return SIGINT;
    if (key == tty_special(user, VQUIT)) return SIGQUIT;
    return key == tty_special(user, VSUSP) ? SIGTSTP : 0;
}

// Keys that were typed while all of them were the program's are held for the line that begins. One
// that asks for a signal sends it and drops those before it, as the terminal would have done.
static void hold_passed_keys(int fd) {
    unsigned char keys[kReadAhead];
    const ssize_t n = keyboard_read(keys, sizeof keys);
    int from = 0;
    for (int i = 0; i < n; i++) {
        const int sig = signal_of_key(keys[i]);
        if (sig == 0) continue;
        handle_signal_general(fd, sig);
        from = i + 1;
    }
    if (n > from) e_hold_keys(keys + from, static_cast<int>(n) - from);
}

int handle_stdin_fd(int fd) {
    // A program that has turned its echo off without a word must not have a secret edited and
    // recorded.
    const int in_force = Vesk_on;
    line_restore_echo(fd);
    (void)check_fd_mode(fd);
    if (Vesk_on != in_force) {
        if (Vesk_on != 0 && editb.e_index == 0) hold_passed_keys(fd);
        return 0;
    }
    nread = Vesk_on != 0 ? read_line(fd) : read_keys();
    if (master_fd < 0) return 0;
    memcpy(det_buf + det_len, buff, static_cast<std::size_t>(nread));
    det_len += nread;
    if (nread == 0) return 0;
    detect_toggle();
    if (!keyboard_pending()) {
        if (det_len == 0) det_ptr = det_buf;
        return 0;
    }
    return deliver(fd, Vesk_on != 0);
}
