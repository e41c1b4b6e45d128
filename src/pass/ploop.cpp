// ploop.cpp: the main loop: one wait for keyboard and program, and what follows from it.
// Signals are served in the wait only; the SIGCHLD catcher may leave it for good.
#include "ploop.h"

#include <unistd.h>
#include <algorithm>
#include <iterator>

#include "child.h"
#include "edit.h"
#include "edit/decode.h"
#include "edit/prompt.h"
#include "edit_wait.h"
#include "editlib.h"
#include "keyboard.h"
#include "mode.h"
#include "output.h"
#include "pace.h"
#include "pass.h"
#include "run.h"
#include "wait.h"
#include "waits.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp ploop 1.0";

// There is something to begin a line with, without another key.
static bool line_begun_ahead() {
    return keyboard_wanted() && (editb.e_index > 0 || (Vesk_on != 0 && kread_has_line()));
}

// A program may print its question, turn its echo off and read, without a word in between. The
// driver of the user's terminal, which echoes what it collects, would go on showing the answer:
// while it collects, the mode is looked at again so long after something has happened.
static constexpr long kLookAgain[] = {20 * kMillisecond, 200 * kMillisecond};

// State: when output was relayed or keys were served last, and the looks taken since.
static long long Served_ns = 0;
static std::size_t Looks = std::size(kLookAgain);

static void look_from_now() {
    Served_ns = now_ns();
    Looks = 0;
}

// Nanoseconds until the next look, kNoTimeout when there is none to come.
static long until_look() {
    if (Looks == std::size(kLookAgain) || wanted_mode() != KeyReader::driver) return kNoTimeout;
    return static_cast<long>(std::max(Served_ns + kLookAgain[Looks] - now_ns(), 0LL));
}

// Takes the look that is due. True when editing is no longer in force.
static bool look_again(int fd) {
    if (until_look() != 0) return false;
    Looks++;
    (void)check_fd_mode(fd);
    return Vesk_on == 0;
}

// State: since when the keyboard has been waited for, without a key; 0 while it isn't.
static long long Silent_from_ns = 0;

// Nanoseconds until a paste whose end was lost is over, kNoTimeout where there is none. While keys
// wait for the line before, its end may be among them.
static long until_paste_ends(bool keys_wanted) {
    if (!keys_wanted || !decode_in_paste()) {
        Silent_from_ns = 0;
        return kNoTimeout;
    }
    if (Silent_from_ns == 0) Silent_from_ns = now_ns();
    const long left = static_cast<long>(Silent_from_ns + kPasteSilence - now_ns());
    if (left > 0) return left;
    decode_silence();
    return kNoTimeout;
}

// The screen was somebody else's: the prompt belongs on the row again, and so does text that the
// driver holds, which an editor has to show.
static void draw_after_resume() {
    if (Resumed == 0) return;
    Resumed = 0;
    if (Vesk_on == 0) return;
    e_rewrite_prompt();
    e_take_typed(STDIN_FILENO);
}

// Forwards a keyboard signal. True when there was one.
static bool forward_signal(int fd) {
    if (progdone == 0) return false;
    handle_signal_general(fd, progdone);
    progdone = 0;
    return true;
}

// Serves keyboard and program after a wait. `held`: set when keys have to wait for the line before.
// True when keys were served.
static bool serve(int fd, const struct pollfd *fds, bool *held) {
    bool keys = fds[kKeyboardSlot].revents != 0 || line_begun_ahead();
    if (keys && line_look(fd)) {
        *held = true;
        keys = false;
    }
    int except_handled = 0;
    bool output = master_ready(fds);
    if ((fds[kMasterSlot].revents & POLLPRI) != 0) {
        (void)handle_fd_except(fd, &except_handled);
        keys = false;  // the status may change what becomes of them
    } else if (keys && output && line_begun_ahead()) {
        // It comes behind the output that was there already.
        (void)handle_fd_stdout(fd);
        output = false;
    }
    if (keys) {
        pass_keys_seen();
        (void)handle_stdin_fd(fd);
        if (master_fd < 0) return true;
    }
    if ((fds[kMasterSlot].revents & POLLOUT) != 0) (void)handle_pending(fd);
    if (output && except_handled == 0) (void)handle_fd_stdout(fd);
    return keys;
}

// How long the main loop may sleep. `held`: keys wait for the line before.
static long longest_sleep(bool held) {
    if (held) return line_next_look();
    if (line_begun_ahead()) return 0;
    line_idle();
    return until_look();
}

void pass_loop(int fd) {
    bool held = false;
    sig_trap_sigcld(SIGCHLD);  // what happened before that catcher was there
    while (Child_dead == 0 && master_fd >= 0) {
        assert_user_mode();
        draw_after_resume();
        if (held) held = line_look(fd);
        const unsigned long relayed = Relayed_bytes;
        struct pollfd fds[2];
        const bool keys_wanted = !held && keyboard_wanted() && !line_begun_ahead();
        const long paste = until_paste_ends(keys_wanted);
        const long sleep = longest_sleep(held);
        const bool sooner = paste != kNoTimeout && (sleep == kNoTimeout || paste < sleep);
        const int ready =
            wait_terminals(fd, keys_wanted, keyboard_pending(), sooner ? paste : sleep, fds);
        if (fds[kKeyboardSlot].revents != 0) Silent_from_ns = 0;
        if (forward_signal(fd) || ready < 0 || look_again(fd)) continue;
        if (serve(fd, fds, &held) || Relayed_bytes != relayed) look_from_now();
    }
}
