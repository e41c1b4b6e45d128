// send.cpp: lines and keys to the program.
//
// A finished line must not be echoed by the program's terminal, and echo must not come back over a
// program that has turned it off. The system takes written bytes in a worker of its own, after the
// write has returned, and a program wakes as soon as a line end is there. So the line goes without
// its newline while echo is off, which wakes nobody; a poll of the slave waits for the worker; echo
// is as it was found again before the newline goes, and the newline's own echo is dropped on its
// way back.
//
// Lines that come faster than the program takes them wait, see look: typed ahead of a password
// prompt they would meet the program in the middle of changing its modes.
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "edit.h"
#include "pass_internal.h"
#include "pty.h"
#include "run.h"
#include "tty.h"
#include "wait.h"

static constexpr long kLookEvery = 500 * kMicrosecond;
// After a program took a line: it will print nothing; after it printed something other than the
// prompt of the line before: that was all.
static constexpr long kSilence = 2 * kMillisecond;
// Silence after which output of a program without a prompt was all.
static constexpr long kMoreFollows = 50 * kMicrosecond;
static constexpr long kBusy =
    50 * kMillisecond;                   // a program that takes no line for so long is busy
static constexpr int kQueueRoom = 4000;  // bytes of input kept below what the system's queue holds
static constexpr int kRelayFirst = 65536;  // bytes of output relayed before a line is written

// How far the program has come with the line sent last.
enum class Line { done, sent, taken, busy };

// State: the last line, with the moments at which it was sent and seen to be taken.
static Line Line_state = Line::done;
static long long Sent_ns = 0;
static long long Taken_ns = 0;
static long long Printed_ns = 0;   // when the program last printed since it took the line, 0 never
static long More_follows_ns = 0;   // silence after which that was all
static bool Line_is_open = false;  // what was sent last had no line end
static int Kept_peer = -1;         // the slave, kept open while more lines wait behind this one

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

// Waits until the system has taken what was written to the master: a poll of the slave flushes its
// worker, except where there is something to read already. True when there is, which an end of file
// alone is too.
static bool flush_worker(int peer) {
    struct pollfd fd = {peer, POLLIN, 0};
    return poll(&fd, 1, 0) == 1 && (fd.revents & POLLIN) != 0;
}

// What the program has not read.
struct Unread {
    bool any;
    int bytes;  // of finished lines; an end of file counts as none
};

static Unread unread_on(int peer) {
    int count = 0;
    const bool any = flush_worker(peer);  // until then a line just written seems to have been read
    if (ioctl(peer, FIONREAD, &count) != 0) count = 0;
    return {any || count > 0, count};
}

// The same, nothing when that can't be asked.
static Unread unread(int fd) {
    if (Kept_peer >= 0) return unread_on(Kept_peer);
    const int peer = pty_open_peer(fd);
    if (peer < 0) return {false, 0};
    const Unread found = unread_on(peer);
    (void)close(peer);
    return found;
}

static int take_peer(int fd) {
    const int peer = Kept_peer >= 0 ? Kept_peer : pty_open_peer(fd);
    Kept_peer = -1;
    return peer;
}

// Done with the slave, unless keys are waiting: then the next line will be there in no time.
static void give_peer(int peer) {
    if (peer >= 0 && (editb.e_index > 0 || keyboard_waiting() > 0))
        Kept_peer = peer;
    else if (peer >= 0)
        (void)close(peer);
}

// Follows the program's progress with the last line.
static void look(int fd) {
    if (Line_state == Line::sent || Line_state == Line::busy) {
        if (!unread(fd).any) {
            Line_state = Line::taken;
            Taken_ns = now_ns();
            Printed_ns = 0;
        } else if (now_ns() - Sent_ns >= kBusy) {
            Line_state = Line::busy;
        }
    }
    if (Line_state != Line::taken) return;
    const long long now = now_ns();
    const bool served = Printed_ns == 0
                            ? now - Taken_ns >= kSilence
                            : now - Printed_ns >= More_follows_ns || now - Taken_ns >= kBusy;
    if (served) Line_state = Line::done;
}

void line_forget(int fd) {
    // A program that lives on with the line unread is busy; the next line may meet it reading.
    if (Line_state != Line::done) Line_state = unread(fd).any ? Line::busy : Line::done;
}

void line_idle() {
    if (Kept_peer < 0 || keyboard_waiting() > 0) return;
    (void)close(Kept_peer);
    Kept_peer = -1;
}

bool line_settling(int fd) {
    if (Line_state == Line::done) return false;
    // A program mostly prints something first, which leads to a look; each one costs a slave
    // opened.
    if (Line_state == Line::sent && now_ns() - Sent_ns < kLookEvery) return true;
    look(fd);
    return Line_state == Line::sent || Line_state == Line::taken;
}

void line_before_output(int fd) {
    if (Line_state == Line::sent) look(fd);
}

void line_after_output() {
    if (Line_state != Line::taken) return;
    Printed_ns = now_ns();
    switch (e_compare_prompt()) {
        case PromptNow::same:
            More_follows_ns = 0;
            break;
        case PromptNow::none:
            More_follows_ns = kMoreFollows;
            break;
        case PromptNow::other:
            More_follows_ns = kSilence;
            break;
    }
}

long line_next_look() {
    if (Line_state != Line::taken || Printed_ns == 0) return kLookEvery;
    return std::clamp(More_follows_ns, kMoreFollows, kLookEvery);
}

// Waits until a line of `len` bytes may be written. False when a keyboard signal came.
static bool await_turn(int fd, int len) {
    for (;;) {
        if (Line_state == Line::done) return true;
        look(fd);
        if (Line_state == Line::busy && unread(fd).bytes + len <= kQueueRoom) return true;
        if (Line_state != Line::done && !relay_once(fd, false, line_next_look())) return false;
    }
}

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

// Waits for the system's worker; where the slave can't be opened (-1), longer than it ever takes.
static void await_worker(int fd, int peer) {
    if (peer >= 0)
        (void)flush_worker(peer);
    else
        (void)relay_once(fd, false, kSilence);
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

// Waits until a line has arrived that was written behind others, of which the program may take some
// meanwhile. `before`: bytes unread when it was written.
static void await_arrival(int fd, int peer, int before) {
    const long long limit = now_ns() + kBusy;
    int fewest = before;
    while (now_ns() < limit) {
        const Unread now = unread_on(peer);
        if (now.bytes > fewest) return;
        if (!now.any) {
            // All of them taken, perhaps a moment ago, when this one was still with the worker.
            (void)flush_worker(peer);
            return;
        }
        fewest = now.bytes;
        if (!relay_once(fd, false, kLookEvery)) return;
    }
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

static void relay_waiting(int fd) {
    const unsigned long from = Relayed_bytes;
    while (Relayed_bytes - from < kRelayFirst) {
        struct pollfd master = {fd, POLLIN, 0};
        if (poll(&master, 1, 0) != 1 || (master.revents & POLLIN) == 0) return;
        (void)handle_fd_stdout(fd);
    }
}

// `peer` is -1 where the slave can't be opened. Returns the number of bytes done with, or -1.
static int send_through(int fd, int peer, const char *line, int len) {
    struct termios found = {};
    int echo_old = 0;
    const int terminal = peer >= 0 ? peer : fd;
    if (tcgetattr(terminal, &found) != 0 || tty_echo_get(terminal, &echo_old) != 0) return -1;
    const bool busy = Line_state == Line::busy;
    const bool newline = line[len - 1] == '\n';
    const bool whole = busy || has_line_end(found, line, newline ? len - 1 : len);
    Written result = {0, false};
    if (echo_old == 0 || is_end_of_file(found, line, len))
        result = write_line(fd, found, line, len);
    else if (whole)
        result = send_whole(fd, peer, found, line, len);
    else
        result = send_split(fd, peer, found, line, len);
    if (result.bytes > 0) Line_is_open = !has_line_end(found, line + result.bytes - 1, 1);
    if (result.bytes == len && !Line_is_open && !busy) {
        Line_state = Line::sent;
        Sent_ns = now_ns();
    }
    if (result.dropped) return len;
    return result.bytes > 0 ? result.bytes : -1;
}

static int send_line(int fd, const char *line, int len) {
    if (!await_turn(fd, len)) return len;  // dropped
    int peer = take_peer(fd);
    if (peer >= 0 && Line_state == Line::done && unread_on(peer).bytes + len > kQueueRoom) {
        // Keys passed through before fill the queue.
        (void)close(peer);
        Line_state = Line::busy;
        if (!await_turn(fd, len)) return len;
        peer = take_peer(fd);
    }
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

void line_flushed() { Line_is_open = false; }

// State: end-of-input keys in a row, with what had happened by the last of them.
static int Ends = 0;
static unsigned long Ends_printed = 0;
static unsigned long Ends_signals = 0;

void end_of_input_forget() { Ends = 0; }

// As for the last one in a row.
static int close_master(int fd) {
    (void)close(fd);
    master_fd = -1;
    return 0;
}

int end_of_input(int fd, char *dst) {
    constexpr int kEnough = 3;
    relay_waiting(fd);
    const bool in_row =
        e_keys_taken <= 1 && Ends_printed == Relayed_bytes && Ends_signals == Signals_forwarded;
    Ends = in_row ? Ends + 1 : 1;
    Ends_printed = Relayed_bytes;
    Ends_signals = Signals_forwarded;
    struct termios t = {};
    const bool known = tcgetattr(fd, &t) == 0;
    const int c = known ? tty_special(t, VEOF) : 0;
    if (Ends == kEnough || c == kNoKey || e_gone != 0) return close_master(fd);
    if (!known || (t.c_lflag & ICANON) == 0) return 0;
    // Behind an unfinished line the first one only ends the line.
    const int len = Line_is_open ? 2 : 1;
    std::fill_n(dst, len, static_cast<char>(c));
    return len;
}
