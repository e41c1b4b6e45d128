// pass.cpp: the state of the pass-through, its set-up and end, and the waits that keyboard and
// program share. Two waits read keys: the main loop's, and pass_wait_key, the editors'. Both serve
// signals in the wait only; the SIGCHLD catcher leaves either by a jump to Env, and nothing here
// owns anything.
#include "pass.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>

#include "edit.h"
#include "editlib.h"
#include "msg.h"
#include "pass_internal.h"
#include "run.h"
#include "tty.h"
#include "utils.h"
#include "wait.h"

[[gnu::used]] static const char kVersion[] = "@(#)morp pass 1.0";

// State of the whole run.
int Vesk_on_desired = 0;
int Vesk_on = 0;
int Pty_raw_or_cbreak = 0;
char buff[kKeyboardBuffer];
char buffo[kPacketSize + 1];
int nread = 0;
int Master_hung_up = 0;

static void sig_trap_general(int sig) { progdone = sig; }

// Output stays hidden this long after the last piece, so that a program that prints in pieces
// doesn't make the line flicker.
static constexpr long kQuiet = 20 * kMillisecond;
static constexpr long kQuietInSequence = 200 * kMillisecond;  // the rest is sure to come
static constexpr long kHungUpRetry = 100 * kMillisecond;

const EditHost pass_host = {pass_wait_key, pass_key_expected, pass_row_rest, pass_row_column,
                            pass_row_new};

void pass_all(int _fd) {
    static int fd;  // still valid after the jump
    fd = _fd;
    e_host = &pass_host;
    Between_writes = pass_forward_waiting_signal;
    opt_flag = get_editor_type();
    Vesk_on_desired = Mode_vesk_init;
    Vesk_on = Mode_vesk_init;
    constexpr int kKeyboardSignals[] = {SIGTSTP, SIGINT, SIGQUIT};
    for (const int sig : kKeyboardSignals) signal_catch(sig, sig_trap_general);
    signal_catch(SIGUSR2, sig_trap_sigusr2);
    signal_catch(SIGCHLD, sig_trap_sigcld);
    signal_catch(SIGCONT, sig_trap_sigcont);
    if (sigsetjmp(Env, 1) == 0) {  // NOLINT(cert-err52-cpp): the frames it crosses own nothing
        print_sig_handlers("pass_all:");
        pass_loop(fd);
    }
    e_view = nullptr;
    if (master_fd >= 0) pass_last_words();
    if (Child_suspended == 0 && !tty_in_background()) e_setcooked(STDIN_FILENO);
}

void pass_forward_waiting_signal() {
    if (progdone == 0 || e_view != nullptr || master_fd < 0) return;
    handle_signal_general(master_fd, progdone);
    progdone = 0;
}

int wait_terminals(int fd, bool keys, bool pending, long timeout_ns, struct pollfd *fds) {
    const bool hung_up = Master_hung_up != 0;
    if (hung_up) sig_trap_sigcld(SIGCHLD);  // its terminal is gone, so it may be as well
    Master_hung_up = 0;                     // tried again after this wait
    if (hung_up && (timeout_ns == kNoTimeout || timeout_ns > kHungUpRetry))
        timeout_ns = kHungUpRetry;
    // A negative descriptor is left out by poll.
    fds[kMasterSlot] = {hung_up ? -1 : fd,
                        static_cast<short>(POLLIN | POLLPRI | (pending ? POLLOUT : 0)), 0};
    fds[kKeyboardSlot] = {keys ? keyboard_fd() : -1, POLLIN, 0};
    const int ready = wait_ready(fds, 2, timeout_ns);
    if (ready < 0 && errno != EINTR) fatal("select error; but not EINTR");
    return ready;
}

bool master_ready(const struct pollfd *fds) {
    return (fds[kMasterSlot].revents & (POLLIN | POLLPRI | POLLHUP | POLLERR)) != 0;
}

bool relay_once(int fd, bool pending, long timeout_ns) {
    struct pollfd fds[2];
    if (progdone != 0) return false;
    const unsigned long forwarded = Signals_forwarded;  // one may come while the screen is slow
    const int ready = wait_terminals(fd, false, pending, timeout_ns, fds);
    if (ready > 0 && master_ready(fds)) (void)handle_fd_stdout(fd);
    return progdone == 0 && Signals_forwarded == forwarded;
}

void assert_user_mode() {
    if (Vesk_on != 0) {
        if (e_assert_mode(STDIN_FILENO) == 0) return;
        if (e_view != nullptr) fatal("can't set tty mode to raw");  // an editor works with it
        // The editor's own mode is refused: the driver's takes its place, and the line is read as
        // it comes from there. Never on the way to the editor's mode: see edit/terminal.cpp.
        if (tty_cooked(STDIN_FILENO) != 0) fatal("can't set tty mode to cooked");
        if (tty_echo_set(STDIN_FILENO, 1) != 0) fatal("can't set echo on stdin on");
    } else {
        // Echo first: a key of a secret must not be shown in between.
        if (tty_echo_set(STDIN_FILENO, 0) != 0) fatal("can't set echo on stdin off");
        if (tty_raw(STDIN_FILENO) != 0) fatal("can't set tty mode to raw");
    }
    e_leave_editing(STDIN_FILENO);
    kread_forget();
}

// Sleeps in the editor's wait. `deadline_ns` is when a line that stepped aside comes back, 0 for
// none.
static int wait_in_edit(long long deadline_ns, struct pollfd *fds) {
    long timeout = kNoTimeout;
    if (deadline_ns != 0) {
        const long long left = deadline_ns - now_ns();
        timeout = left > 0 ? static_cast<long>(left) : 0;
    }
    return wait_terminals(master_fd, true, false, timeout, fds);
}

// While an editor waits, its line may have stepped aside for output. Shared with output.cpp through
// pass_before_output; reset when a wait ends.
static bool Stepped_aside = false;

void pass_before_output() {
    if (e_view == nullptr || Stepped_aside) return;
    e_view->step_off();
    e_flush();
    Stepped_aside = true;
}

static void come_back() {
    if (!Stepped_aside) return;
    Stepped_aside = false;
    e_view->come_back();
    e_flush();
}

static void take_edit_away() {
    if (!Stepped_aside) pass_before_output();
    Stepped_aside = false;
    e_taken_len = Input_flushed != 0 ? 0 : e_view->text(e_taken);
}

// A keyboard signal ends the edit; its text stays on the row, unless it had stepped aside.
static KeyWait interrupted() {
    if (!Stepped_aside) {
        e_row_stale = 1;
        row_forget();
    }
    return KeyWait::interrupted;
}

// State: until this moment a key that is there already is read without a wait.
static long long Burst_end_ns = 0;

void pass_keys_seen() { Burst_end_ns = now_ns() + kMillisecond; }

// The wait has served signals and output within the last millisecond, and the program, which is looked
// at for each key, still reads lines.
bool pass_key_expected() {
    if (progdone != 0 || Resumed != 0 || now_ns() >= Burst_end_ns) return false;
    if (keyboard_waiting() == 0) return false;  // a key typed singly pays for no more than this
    (void)check_fd_mode(master_fd);
    Input_flushed = 0;
    return Vesk_on != 0;
}

KeyWait pass_wait_key() {
    long long deadline_ns = 0;
    struct pollfd fds[2];
    Stepped_aside = false;
    Burst_end_ns = 0;
    line_idle();
    e_flush();
    for (;;) {
        if (progdone != 0) return interrupted();
        if (Vesk_on == 0) {
            take_edit_away();
            return KeyWait::taken;
        }
        assert_user_mode();
        if (Resumed != 0) {
            Resumed = 0;
            come_back();
            deadline_ns = 0;
            e_view->redraw();
            e_flush();
        }
        const int ready = wait_in_edit(deadline_ns, fds);
        if (progdone != 0) return interrupted();
        if (ready > 0 && master_ready(fds)) {
            (void)handle_fd_stdout(master_fd);
            const long quiet = row_in_sequence() ? kQuietInSequence : kQuiet;
            if (Stepped_aside) deadline_ns = now_ns() + quiet;
        }
        const bool key = ready > 0 && fds[kKeyboardSlot].revents != 0;
        if (key && Stepped_aside) relay_rest_of_piece(master_fd);
        if (key && Vesk_on != 0) (void)check_fd_mode(master_fd);
        if (Vesk_on == 0) continue;
        if (key || (deadline_ns != 0 && now_ns() >= deadline_ns)) {
            come_back();
            deadline_ns = 0;
        }
        if (key) {
            Input_flushed = 0;
            pass_keys_seen();
            return KeyWait::ready;
        }
    }
}
