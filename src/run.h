// run.h: what is known of the run everywhere, and its orderly end.
#pragma once

#include <sys/types.h>
#include <csetjmp>
#include <csignal>

#include "tty.h"

extern const char *Program_name;  // last component of argv[0], the prefix of most messages
extern int Mode_vesk_init;        // option -m: not 0 when editing is wanted at start
extern int master_fd;             // pseudo-terminal master, -1 before the start and once closed
extern pid_t Child_pid;           // the program: process, group and session id; 0 before the start
extern int Child_dead;            // 1 once the program has ended
extern int Child_status;          // how it ended, as wait() gives it; 0 while that isn't known
extern volatile std::sig_atomic_t Child_suspended;  // 1 while morp is suspended with the program
extern sigjmp_buf Env;  // where the SIGCHLD catcher goes when the program has ended

// Restores the user's terminal and ends the process with status `status`, or with 1 when the
// terminal can't be restored. In the background, or suspended, the terminal is left alone.
[[noreturn]] void finish(int status);
// The same as the program has ended: with its exit status, or by the signal that ended it, without
// a core file.
[[noreturn]] void finish_as_program();
// What is to be taken back before every end in which the terminal isn't left alone; null for
// nothing. To be called by whoever else ends the process.
extern void (*Before_end)();

// Formats `what` behind the name of the program into Message_buf ("morp: what"), prints it with the
// text of errno, and ends through finish(1).
[[noreturn]] void fatal(const char *what);
// The same with `message` as it stands.
[[noreturn]] void fatal_message(const char *message);

// Pointer just past the last '/' of `str`, or `str`.
const char *t_basename(const char *str);
