// run.cpp: see run.h. What is known of the run is set by start-up and by the catchers; finish may
// be called by anybody at any time, catchers included, and never comes back.
#include "run.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "msg.h"
#include "os.h"

const char *Program_name = "morp";
int Mode_vesk_init = 1;
int master_fd = -1;
pid_t Child_pid = 0;
int Child_dead = 0;
int Child_status = 0;
volatile std::sig_atomic_t Child_suspended = 0;
sigjmp_buf Env;
void (*Before_end)() = nullptr;

const char *t_basename(const char *str) {
    const char *slash = strrchr(str, '/');
    return slash == nullptr ? str : slash + 1;
}

// Ends the process where that can't be done.
static void give_terminal_back() {
    if (Child_suspended != 0 || tty_in_background()) return;
    if (Before_end != nullptr) Before_end();
    int restored = -1;
    // Tried twice: the user has to go on with this terminal.
    for (int i = 0; i < 2 && restored != 0; i++)
        restored = tty_apply(fileno(stdin), &Tty_original.tty_termios);
    if (restored != 0) {
        message_format("%s: can't restore original tty mode", Program_name);
        perror(Message_buf);
        exit(1);
    }
}

void finish(int status) {
    give_terminal_back();
    exit(status);
}

// What the program has left is its own affair, a second core file would be of no use to anybody.
static void die_of(int sig) {
    constexpr struct rlimit kNone = {0, 0};
    (void)setrlimit(RLIMIT_CORE, &kNone);
    os_no_core();
    (void)std::signal(sig, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    (void)sigprocmask(SIG_UNBLOCK, &set, nullptr);
    (void)raise(sig);
}

void finish_as_program() {
    give_terminal_back();
    if (!WIFSIGNALED(Child_status)) exit(WEXITSTATUS(Child_status));
    (void)fflush(nullptr);
    die_of(WTERMSIG(Child_status));
    exit(128 + WTERMSIG(Child_status));
}

void fatal(const char *what) {
    const int err = errno;
    message_format("%s: %s", Program_name, what);
    errno = err;
    perror(Message_buf);
    finish(1);
}

void fatal_message(const char *message) {
    const int err = errno;
    message_format("%s", message);
    errno = err;
    perror(Message_buf);
    finish(1);
}
