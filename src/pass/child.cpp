// child.cpp: the program's state, and job control: morp stops and resumes with it. All of this runs
// in catchers, which run in waits only. While morp is stopped everything is blocked; what came
// meanwhile is looked at before the terminal is touched again.
#include "child.h"

#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "edit.h"
#include "edit/prompt.h"
#include "edit_wait.h"
#include "marks.h"
#include "os.h"
#include "pass.h"
#include "run.h"
#include "tty.h"
#include "wait.h"
#include "waits.h"

volatile std::sig_atomic_t Resumed = 0;
static bool Terminal_saved = false;  // suspended_tty belongs to the present suspension

enum_child_state check_child_state() {
    int status = 0;
    const pid_t pid = waitpid(Child_pid, &status, WNOHANG | WUNTRACED);
    if (pid < 0) return errno == ECHILD ? e_StateGone : e_StateUnknown;
    if (pid != Child_pid) return e_StateRunning;
    if (WIFSTOPPED(status)) {
        const int sig = WSTOPSIG(status);
        return sig == SIGTSTP || sig == SIGSTOP ? e_StateStopped : e_StateRunning;
    }
    if (!WIFEXITED(status) && !WIFSIGNALED(status)) return e_StateRunning;
    Child_status = status;
    return e_StateGone;
}

// A line being edited leaves the row to what the program said last.
static void step_aside_for_last_words() {
    if (e_view == nullptr || master_fd < 0) return;
    if (is_ready(master_fd, POLLIN)) pass_before_output();
}

void sig_trap_sigcld(int sig) {
    switch (check_child_state()) {
        case e_StateGone:
            Child_dead = 1;
            step_aside_for_last_words();
            siglongjmp(Env, 4);  // NOLINT(cert-err52-cpp): the frames it crosses own nothing
        case e_StateStopped:
            handle_child_stop(sig, sig_trap_sigcld);
            break;
        case e_StateUnknown:
            Master_hung_up = 1;  // asked again before long
            break;
        case e_StateRunning:
            break;
    }
}

void sig_trap_sigusr2(int sig) { handle_child_stop(sig, sig_trap_sigusr2); }

void sig_trap_sigcont(int) {
    sig_trap_sigwinch(SIGWINCH);  // a resize reaches the foreground only
    out_row_forget();
    Resumed = 1;
}

static void drop_pending(int sig) {
    while (os_take_signal(sig)) {
    }
}

// Gives the user's terminal back, unless another process has it; its size is its own affair. All
// signals are blocked.
static void leave_terminal() {
    Terminal_saved = !tty_in_background();
    if (Terminal_saved) {
        marks_leave();
        if (tty_info_get(STDIN_FILENO, &suspended_tty) != 0)
            fatal_message("morp: can't get tty mode");
        if (tty_apply(STDIN_FILENO, &Tty_original.tty_termios) != 0)
            fatal_message("morp: can't restore original tty mode");
    } else if (tty_is_untouched() && tty_info_get(STDIN_FILENO, &suspended_tty) == 0) {
        // A shell that is stopped by the same key may have given the terminal away already; with
        // SIGTTOU blocked the call goes through all the same.
        marks_leave();
        Terminal_saved = tcsetattr(STDIN_FILENO, TCSANOW, &Tty_original.tty_termios) == 0;
    }
}

void handle_child_stop(int, S_sigpf) {
    if (Child_suspended != 0) return;
    // A second request in the middle of this one would save settings that are not the user's.
    sigset_t all;
    sigset_t mask;
    sigfillset(&all);
    (void)sigprocmask(SIG_BLOCK, &all, &mask);
    leave_terminal();
    Child_suspended = 1;
    (void)raise(SIGSTOP);
    handle_child_restart(SIGCONT);
    (void)sigprocmask(SIG_SETMASK, &mask, nullptr);
}

void handle_child_restart(int) {
    wait_window_open(kWindowEnd);  // a kill of the suspended job is served here
    wait_window_close();
    if (Terminal_saved) {
        if (tty_apply(STDIN_FILENO, &suspended_tty.tty_termios) != 0)
            fatal_message("can't restore tty mode");
    }
    drop_pending(SIGCONT);
    drop_pending(SIGUSR2);
    sig_trap_sigcont(SIGCONT);  // before the program goes on: it finds the new size
    (void)kill(-Child_pid, SIGCONT);
    Child_suspended = 0;
    e_row_renewed();  // the shell has written below it
}

void sig_trap_sigterm(int) {
    // The wait that let this one in lets others in too, and a second one in the middle of a message
    // would wait for the first one's lock for ever.
    wait_window_close();
    if (Child_suspended == 0) pass_last_words_at_once();
    finish(1);
}

void sig_trap_sigwinch(int) {
    const int err = errno;
    if (master_fd >= 0 && ioctl(STDIN_FILENO, TIOCGWINSZ, &Tty_original.tty_winsize) == 0 &&
        Tty_original.tty_winsize.ws_col != 0)
        (void)ioctl(master_fd, TIOCSWINSZ, &Tty_original.tty_winsize);  // a lost size harms nobody
    errno = err;
}
