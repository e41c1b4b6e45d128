// send.cpp: lines and keys to the program.
//
// A finished line must not be echoed by the program's terminal, and echo must not come back over a
// program that has turned it off. The system takes written bytes in a worker of its own, after the
// write has returned, and a program wakes as soon as a line end is there. So the line goes without
// its newline while echo is off, which wakes nobody; a poll of the slave waits for the worker; echo
// is as it was found again before the newline goes, and the newline's own echo is dropped on its
// way back. What would wake a reader earlier, or goes behind a line unread, is written whole with
// echo off.
//
// Output is relayed and signals are served while the master takes nothing, and while pace.cpp
// waits: a keyboard signal then drops the rest of the line. The SIGCHLD catcher may leave such a
// wait for good, with echo off on a terminal that nobody has any more.
#include "send.h"

#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "mode.h"
#include "morp_defs.h"
#include "obeyed.h"
#include "output.h"
#include "pace.h"
#include "tty.h"
#include "wait.h"
#include "waits.h"

// State: echo switched off for a write, or left off because it could not be put back, and the echo
// of a newline still to come.
static bool Echo_held = false;
static const char *Echo_want = "";  // empty when none is expected
static bool Echo_begun = false;     // its first byte was at the end of a read

tcflag_t program_held_flags() { return Echo_held ? ECHO : 0; }

void echo_disarm() {
    Echo_want = "";
    Echo_begun = false;
}

int echo_to_drop(const char *data, int len, char *late) {
    const int want = static_cast<int>(strlen(Echo_want));
    int matched = Echo_begun ? 1 : 0;
    int used = 0;
    if (want == 0 || len == 0) return 0;
    while (used < len && matched < want && data[used] == Echo_want[matched]) {
        used++;
        matched++;
    }
    if (matched == want) {
        echo_disarm();
        return used;
    }
    if (used == len) {
        Echo_begun = true;
        return used;
    }
    if (Echo_begun) *late = Echo_want[0];  // it was no echo
    echo_disarm();
    return 0;
}

// State: what was sent last had no line end.
static bool Line_is_open = false;

// How a write went: bytes that the master took, fewer than all after a failure or where a keyboard
// signal came, upon which the rest is dropped.
struct Written {
    int bytes;
    bool dropped;
};

// Writes all bytes, relaying output while the master takes none.
static Written write_all(int fd, const char *data, int len) {
    int done = 0;
    while (done < len) {
        const ssize_t n = write(fd, data + done, static_cast<std::size_t>(len - done));
        if (n >= 0)
            done += static_cast<int>(n);
        else if (errno != EAGAIN && errno != EINTR)
            break;
        else if (!relay_once(fd, true, kNoTimeout))
            return {done, true};
    }
    return {done, false};
}

static bool special_in(const struct termios &t, int index, const char *data, int len) {
    const int c = tty_special(t, index);
    return c != kNoKey && memchr(data, c, static_cast<std::size_t>(len)) != nullptr;
}

// True when a reader could wake before the last of these bytes.
static bool has_line_end(const struct termios &t, const char *data, int len) {
    if ((t.c_lflag & ICANON) == 0) return true;
    if (memchr(data, '\n', static_cast<std::size_t>(len)) != nullptr) return true;
    if ((t.c_iflag & ICRNL) != 0 && memchr(data, '\r', static_cast<std::size_t>(len)) != nullptr)
        return true;
    return special_in(t, VEOF, data, len) || special_in(t, VEOL, data, len) ||
           ((t.c_lflag & IEXTEN) != 0 && special_in(t, VEOL2, data, len));
}

// True for an end of file, which the terminal never echoes.
static bool is_end_of_file(const struct termios &t, const char *line, int len) {
    const int c = (t.c_lflag & ICANON) != 0 ? tty_special(t, VEOF) : kNoKey;
    return std::all_of(line, line + len, [c](char byte) { return byte_of(byte) == c; });
}

// Writes a line, or the end of one, as write_all does. A terminal that takes newline and carriage
// return for each other ends no line at a newline.
static Written write_line(int fd, const struct termios &t, const char *line, int len) {
    constexpr tcflag_t kSwapped = INLCR | ICRNL;
    if (line[len - 1] != '\n' || (t.c_iflag & (kSwapped | IGNCR)) != kSwapped)
        return write_all(fd, line, len);
    const Written text = write_all(fd, line, len - 1);
    if (text.bytes < len - 1) return text;
    const Written end = write_all(fd, "\r", 1);
    return {text.bytes + end.bytes, end.dropped};
}

// Switches echo, which was found on, off and on again. The settings are read anew each time: the
// program may have changed something else.
static int echo_off(int peer) {
    const int result = tty_echo_set(peer, 0);
    if (result == 0) Echo_held = true;
    return result;
}

// The line is out and never goes a second time: where this fails, line_restore_echo tries again.
static void echo_on(int peer) {
    if (tty_echo_set(peer, 1) == 0) Echo_held = false;
}

void line_restore_echo(int fd) {
    if (Echo_held) echo_on(fd);
}

// Writes a line whose end is its only one; `peer` may be -1.
static Written send_split(int fd, int peer, const struct termios &found, const char *line,
                          int len) {
    const bool newline = line[len - 1] == '\n';
    const int body = newline ? len - 1 : len;
    const int terminal = peer >= 0 ? peer : fd;
    Written text = {0, false};
    if (body > 0) {
        if (echo_off(terminal) != 0) return text;
        text = write_all(fd, line, body);
        await_worker(fd, peer);
        echo_on(terminal);
    }
    if (!newline || text.bytes < body) return text;
    Echo_want = (found.c_oflag & OPOST) != 0 && (found.c_oflag & ONLCR) != 0 ? "\r\n" : "\n";
    Echo_begun = false;
    const Written end = write_line(fd, found, "\n", 1);
    if (end.bytes == 0) echo_disarm();
    return {body + end.bytes, end.dropped};
}

// Writes a line that a program may begin to read before it is complete, or behind others; `peer`
// may be -1.
static Written send_whole(int fd, int peer, const struct termios &found, const char *line,
                          int len) {
    const int terminal = peer >= 0 ? peer : fd;
    const Unread before = peer >= 0 ? unread_on(peer) : Unread{false, 0};
    if (echo_off(terminal) != 0) return {0, false};
    const Written result = write_line(fd, found, line, len);
    await_worker(fd, peer);
    if (before.any && result.bytes == len && line[len - 1] == '\n')
        await_arrival(fd, peer, before.bytes);
    echo_on(terminal);
    return result;
}

static std::size_t as_size(int n) { return static_cast<std::size_t>(n); }

// `peer` is -1 where the slave can't be opened. Returns the number of bytes done with, or -1.
static int send_through(int fd, int peer, const char *line, int len) {
    struct termios found = {};
    int echo_old = 0;
    const int terminal = peer >= 0 ? peer : fd;
    if (tcgetattr(terminal, &found) != 0 || tty_echo_get(terminal, &echo_old) != 0) return -1;
    const bool busy = program_is_busy();
    const bool end = is_end_of_file(found, line, len);
    const int body = line[len - 1] == '\n' ? len - 1 : len;
    const Quoted out = end ? Quoted{line, len} : quote_obeyed(found, line, len);
    // What is quoted ends no line.
    const bool whole = busy || (out.len > len ? memchr(line, '\n', as_size(body)) != nullptr
                                              : has_line_end(found, line, body));
    Written result = {0, false};
    if (echo_old == 0 || end)
        result = write_line(fd, found, out.bytes, out.len);
    else if (whole)
        result = send_whole(fd, peer, found, out.bytes, out.len);
    else
        result = send_split(fd, peer, found, out.bytes, out.len);
    if (!end) result.bytes = quoted_done(found, line, len, result.bytes);
    if (result.bytes > 0) Line_is_open = !has_line_end(found, line + result.bytes - 1, 1);
    if (result.bytes == len && !Line_is_open && !busy) line_sent();
    if (result.dropped) return len;
    return result.bytes > 0 ? result.bytes : -1;
}

static int send_line(int fd, const char *line, int len) {
    int peer = -1;
    if (!await_turn(fd, len, &peer)) return len;  // dropped
    relay_waiting(fd);
    (void)check_fd_mode(fd);
    const int result = send_through(fd, peer, line, len);
    give_peer(peer);
    return result;
}

// Writes what the master takes at once. Returns the bytes taken, -1 on failure.
static int send_keys(int fd, const char *keys, int len) {
    int done = 0;
    while (done < len) {
        const ssize_t n = write(fd, keys + done, static_cast<std::size_t>(len - done));
        if (n < 0 && errno != EAGAIN && errno != EINTR && done == 0) return -1;
        if (n < 0) break;  // the rest is tried again
        done += static_cast<int>(n);
    }
    struct termios t = {};
    if (done > 0) Line_is_open = tcgetattr(fd, &t) == 0 && !has_line_end(t, keys + done - 1, 1);
    return done;
}

int write_to_pty(int fd, const char *bf, int blen, int echo_off_wanted) {
    return echo_off_wanted != 0 ? send_line(fd, bf, blen) : send_keys(fd, bf, blen);
}

bool line_is_open() { return Line_is_open; }

void line_flushed() { Line_is_open = false; }
