// run.cpp: see run.h. What is known of the run is set by start-up and by the catchers; finish may
// be called by anybody at any time, catchers included, and never comes back.
#include "run.h"

#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "msg.h"

const char *Program_name = "morp";
int Mode_vesk_init = 1;
int master_fd = -1;
pid_t Child_pid = 0;
int Child_dead = 0;
volatile std::sig_atomic_t Child_suspended = 0;
sigjmp_buf Env;

const char *t_basename(const char *str) {
    const char *slash = strrchr(str, '/');
    return slash == nullptr ? str : slash + 1;
}

void finish(int status) {
    if (Child_suspended != 0 || tty_in_background()) exit(status);
    tty_size_refresh(fileno(stdin), &Tty_original);
    int restored = -1;
    // Tried twice: the user has to go on with this terminal.
    for (int i = 0; i < 2 && restored != 0; i++)
        restored = tty_info_change(fileno(stdin), &Tty_original, 1);
    if (restored != 0) {
        message_format("%s: can't restore original tty mode", Program_name);
        perror(Message_buf);
        exit(1);
    }
    exit(status);
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
