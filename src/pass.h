// pass.h: pass-through between the user's terminal and the program: keyboard path, output path,
// supervision of the program.
#pragma once

#include "edit/host.h"
#include "morp_defs.h"

extern int Vesk_on_desired;  // editing wanted by the user
extern int Vesk_on;          // editing in force
extern int
    Pty_raw_or_cbreak;  // 1: the program's terminal lacked canonical input or echo when last seen
// Keys or a line on their way, with room for the beginning of a mark that was held back.
inline constexpr int kPassBuffer = kLineBuffer + 16;
extern char buff[kPassBuffer];

// What the editors ask of the pass-through; pass_all makes it their host.
extern const EditHost pass_host;

// The pass-through on master `fd`. Returns when the program has ended or the master is closed.
void pass_all(int fd);
// Relays what the program has left in the master, at most 1 MiB, waiting for the screen.
void pass_last_words();
// The same from a catcher that ends the process: writes only what the screen takes at once.
void pass_last_words_at_once();
// Catchers: ends the run; passes the size of the user's terminal on.
void sig_trap_sigterm(int sig);
void sig_trap_sigwinch(int sig);
