// pass.cpp: the pass-through's set-up and end, and the waits that keyboard and program share. Two
// waits read keys: the main loop's (ploop.cpp), and the editors' (edit_wait.cpp). Both serve
// signals in the wait only; the SIGCHLD catcher leaves either by a jump to Env, and nothing here
// owns anything.
#include "pass.h"

#include <unistd.h>
#include <cerrno>

#include "child.h"
#include "edit.h"
#include "edit_wait.h"
#include "extended.h"
#include "keyboard.h"
#include "marks.h"
#include "mode.h"
#include "msg.h"
#include "obeyed.h"
#include "output.h"
#include "ploop.h"
#include "proc.h"
#include "run.h"
#include "tty.h"
#include "wait.h"
#include "waits.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp pass 1.0";

// State of the whole run.
char buff[kPassBuffer];
char buffo[kPacketSize + 1];
int nread = 0;
int Master_hung_up = 0;

static void sig_trap_general(int sig) { progdone = sig; }

static constexpr long kHungUpRetry = 100 * kMillisecond;

const EditHost pass_host = {pass_wait_key, pass_look_for_key, open_program_folder,
                            pass_first_refused};

void pass_all(int _fd) {
    static int fd;  // still valid after the jump
    fd = _fd;
    e_host = &pass_host;
    Between_writes = pass_forward_waiting_signal;
    obeyed_begin(Extended != 0);
    edit_wait_begin(Extended != 0);
    marks_begin(Extended != 0 && Dumb_terminal == 0);
    want_editing(Mode_vesk_init);
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
