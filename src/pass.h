// pass.h: pass-through between the user's terminal and the program: keyboard path, output path,
// supervision of the program.
#pragma once

#include <csignal>
#include <cstddef>

#include "morp_defs.h"

extern int opt_flag;         // editing style, kStyleGmacs, kStyleEmacs or kStyleVi
extern int Vesk_on_desired;  // editing wanted by the user
extern int Vesk_on;          // editing in force
extern int
    Pty_raw_or_cbreak;  // 1: the program's terminal lacked canonical input or echo when last seen
extern char buff[kKeyboardBuffer];
extern volatile std::sig_atomic_t progdone;  // keyboard signal caught and not yet forwarded, 0 none

// How a wait for a key ended.
enum class KeyWait { ready, interrupted, taken };

// The editor's wait: sleeps until the keyboard can be read. Program output is relayed meanwhile,
// with the editor stepping off its row and coming back (e_view). `ready`: read now. `interrupted`:
// progdone is set. `taken`: the program left line input, the edit has to end.
KeyWait pass_wait_key();
// In a paste the next key is there already: there is nothing to wait for and nothing to show yet.
// True when a read of the keyboard may be tried without a wait: the wait has served signals and
// output within the last millisecond, and the program, which is looked at for each key, still reads
// lines.
bool pass_key_expected();

// Most columns of a row that are kept, at least those of the widest window and its prompt.
inline constexpr int kRowColumns = 161;
// Copies what the program has left on the screen's row from its cursor on, printable characters, to
// `dst` (kRowColumns bytes, not terminated). Returns their number: 0 also where the row isn't
// known.
int pass_row_rest(char *dst);
// The program's cursor stands on a new, empty row.
void pass_row_new();

// The pass-through on master `fd`. Returns when the program has ended or the master is closed.
void pass_all(int fd);
// Relays what the program has left in the master, at most 1 MiB, waiting for the screen.
void pass_last_words();
// The same from a catcher that ends the process: writes only what the screen takes at once.
void pass_last_words_at_once();
// Forwards a keyboard signal that came while the screen kept a write waiting, unless an edit has to
// see it first.
void pass_forward_waiting_signal();
