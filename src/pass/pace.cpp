// pace.cpp: how far the program is with the line sent last, and when the next one may be written.
//
// Lines that come faster than the program takes them wait: typed ahead of a password prompt they
// would meet the program in the middle of changing its modes. A line is `sent` until the program
// has read it, then `taken` until the program has printed, or stayed silent for a while, and `done`
// after that. One that isn't read for long is a `busy` program's: further lines are written behind
// it at once, as many as the system's queue holds. All of that is seen by looks at the slave, which
// is opened for each of them and kept open only while more lines are on their way.
//
// Waits here relay output, and signals are served in them: a keyboard signal ends one, and the
// SIGCHLD catcher may leave it for good.
#include "pace.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <algorithm>

#include "edit.h"
#include "edit/prompt.h"
#include "pty.h"
#include "wait.h"
#include "waits.h"

static constexpr long kLookEvery = 500 * kMicrosecond;
// After a program took a line: it will print nothing; after it printed something other than the
// prompt of the line before: that was all.
static constexpr long kSilence = 2 * kMillisecond;
// Silence after which output of a program without a prompt was all.
static constexpr long kMoreFollows = 50 * kMicrosecond;
// A program that takes no line for so long is busy.
static constexpr long kBusy = 50 * kMillisecond;
static constexpr int kQueueRoom = 4000;  // bytes of input kept below what the system's queue holds

// How far the program has come with the line sent last.
enum class Line { done, sent, taken, busy };

// State: the last line, with the moments at which it was sent and seen to be taken.
static Line Line_state = Line::done;
static long long Sent_ns = 0;
static long long Taken_ns = 0;
static long long Printed_ns = 0;  // when the program last printed since it took the line, 0 never
static long More_follows_ns = 0;  // silence after which that was all
static int Kept_peer = -1;        // the slave, kept open while more lines wait behind this one

// Waits until the system has taken what was written to the master: a poll of the slave flushes its
// worker, except where there is something to read already. True when there is, which an end of file
// alone is too.
static bool flush_worker(int peer) { return is_ready(peer, POLLIN); }

Unread unread_on(int peer) {
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

void give_peer(int peer) {
    if (peer >= 0 && (editb.e_index > 0 || keyboard_waiting() > 0))
        Kept_peer = peer;
    else if (peer >= 0)
        (void)close(peer);
}

// Follows the program's progress with the last line.
static void follow(int fd) {
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

bool line_look(int fd) {
    if (Line_state == Line::done) return false;
    // A program mostly prints something first, which leads to a look; each one costs a slave
    // opened.
    if (Line_state == Line::sent && now_ns() - Sent_ns < kLookEvery) return true;
    follow(fd);
    return Line_state == Line::sent || Line_state == Line::taken;
}

void line_before_output(int fd) {
    if (Line_state == Line::sent) follow(fd);
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
static bool await_room(int fd, int len) {
    for (;;) {
        if (Line_state == Line::done) return true;
        follow(fd);
        if (Line_state == Line::busy && unread(fd).bytes + len <= kQueueRoom) return true;
        if (Line_state != Line::done && !relay_once(fd, false, line_next_look())) return false;
    }
}

bool await_turn(int fd, int len, int *peer) {
    if (!await_room(fd, len)) return false;
    *peer = take_peer(fd);
    const Unread before = *peer >= 0 && Line_state == Line::done ? unread_on(*peer) : Unread{};
    if (before.bytes > 0 && before.bytes + len > kQueueRoom) {
        // Keys passed through before fill the queue. An empty one takes a line of any length.
        (void)close(*peer);
        Line_state = Line::busy;
        if (!await_room(fd, len)) return false;
        *peer = take_peer(fd);
    }
    return true;
}

bool program_is_busy() { return Line_state == Line::busy; }

void line_sent() {
    Line_state = Line::sent;
    Sent_ns = now_ns();
}

void await_worker(int fd, int peer) {
    if (peer >= 0)
        (void)flush_worker(peer);
    else
        (void)relay_once(fd, false, kSilence);
}

void await_arrival(int fd, int peer, int before) {
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
