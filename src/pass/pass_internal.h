// pass_internal.h: what the files of the pass-through and the main loop share.
#pragma once

#include <poll.h>
#include <termios.h>

#include "edit/host.h"
#include "pass.h"
#include "wait.h"

// Supervision of the program (child.cpp).
enum EnumChildState { e_StateUnknown = 0, e_StateGone = 1, e_StateRunning = 2, e_StateStopped = 3 };
using enum_child_state = EnumChildState;
using S_sigpf = void (*)(int);

// Polls the program without blocking.
enum_child_state check_child_state();
void sig_trap_sigcld(int sig);
void sig_trap_sigusr2(int sig);
void sig_trap_sigcont(int sig);
// Gives the user's terminal back, stops morp until it is continued, and resumes. `sig_handler`, the
// running catcher of `sig`, is in force again afterwards.
void handle_child_stop(int sig, S_sigpf sig_handler);
void handle_child_restart(int sig);
// 1 after somebody else may have changed the terminal and written on the screen: the next wait's
// caller sets the mode afresh and draws.
extern volatile std::sig_atomic_t Resumed;

// Keyboard path (keyboard.cpp).
// Reads keys, or a whole line when editing is in force, and passes them on. Returns 0, or -1 when
// they could not be given to the program.
int handle_stdin_fd(int fd);
// True while a read of the keyboard would find room, and no finished line is pending.
bool keyboard_wanted();
// Bytes that the master did not take are waiting to be written to it.
bool keyboard_pending();
// Writes what is pending. Returns 0, or -1.
int handle_pending(int fd);
// Sends keyboard signal `sig` to the foreground group of the program's terminal. Returns 0.
int handle_signal_general(int fd, int sig);
extern unsigned long Signals_forwarded;

// Lines and keys to the program (send.cpp).
// Writes `blen` bytes of `bf` to the master `fd`. With `echo_off` they are a finished line, which
// the program's terminal doesn't echo and which is written whole, output relayed meanwhile; else as
// much as the master takes at once. Returns the number of bytes done with, or -1 on failure.
int write_to_pty(int fd, const char *bf, int blen, int echo_off);
// True while the program has not yet dealt with the line before (see send.cpp).
bool line_settling(int fd);
// Nanoseconds after which line_settling should be asked again while it is true.
long line_next_look();
// Program output is about to be read; has been relayed and is in the capture of the prompt.
void line_before_output(int fd);
void line_after_output();
// Before a sleep: where no keys wait, what was kept ready for the next line is given up.
void line_idle();
// A keyboard signal came: nothing waits for the line before any longer.
void line_forget(int fd);
// The local flags of the program's terminal that the program has set and morp keeps off: ECHO while
// a line is written.
tcflag_t program_held_flags();
// Takes the expected echo of a newline off the start of program output. Returns the bytes to skip.
int echo_to_drop(const char *data, int len, char *late);
void echo_disarm();
// The program has dropped what it had not read.
void line_flushed();
// Where the program's echo could not be put back after a line, tries again. To be called before a
// key is taken.
void line_restore_echo(int fd);
// An end-of-input key on an empty line: puts what tells the program of it into `dst` (2 bytes) and
// returns its length. 0 where nothing can tell it, and where the master was closed instead: at the
// third such key in a row, and where the program's terminal has no end-of-file key or the user's is
// gone.
int end_of_input(int fd, char *dst);
// Something else was given to the program: the next end-of-input key is the first in a row.
void end_of_input_forget();

// A packet: one header byte and data, read at once. The longest that a master delivers in one read
// is about this.
inline constexpr int kPacketSize = 4096;
// The packet read last, with room for a NUL behind it. It lives until it is written.
extern char buffo[kPacketSize + 1];
// Bytes of the line, the keys or the packet read last; while a line is edited packets are read.
extern int nread;

// Who reads the user's keys (mode.cpp).
enum class KeyReader {
    program,  // the terminal is raw and silent: every key is the program's
    editor,   // raw: an editor takes each key
    driver,   // the terminal's own driver collects and echoes a line that vi style begins
};
KeyReader wanted_mode();
// The user wants editing (not 0) or not, and has it whatever the program's terminal is like.
void want_editing(int wanted);
// Looks at the program's terminal: whether editing may be in force. Returns 0, -1 when its settings
// can't be read.
int check_fd_mode(int fd);
// Puts the user's terminal into the mode that is wanted, or ends with a message.
void assert_user_mode();

// Output path (output.cpp).
// Reads one packet from the master and relays it. Returns 0, or -1 when nothing could be read and
// the program is known to be dead.
int handle_fd_stdout(int fd);
// Relays the rest of an escape sequence, of a character, or of a line end of which a read has
// brought the beginning, as far as it comes within 50 ms: a line that comes back in between would
// break it.
void relay_rest_of_piece(int fd);
int handle_fd_except(int fd, int *except_handled);
// Bytes of program output relayed so far, and whether the program flushed its input since the last
// key was read.
extern unsigned long Relayed_bytes;
extern int Input_flushed;
// The master reports hang-up although the program lives: nobody has the terminal open.
extern int Master_hung_up;

// The screen's row (row.cpp).
// `len` bytes of program output are being shown.
void row_follow(const char *data, int len);
// True when they end within what a terminal takes as one, a carriage return before a newline
// included; only within an escape sequence or a character.
bool row_in_piece();
bool row_in_sequence();
// Somebody else has written on the row.
void row_forget();

// The main loop (ploop.cpp): relays between keyboard, program and screen until the program has
// ended or the master `fd` is closed. Ends through finish(1) on a fatal error.
void pass_loop(int fd);

// What the editors ask of their host (EditHost), here and in row.cpp.
KeyWait pass_wait_key(long timeout_ns);
bool pass_key_expected();
int pass_row_rest(char *dst);
int pass_row_column();
void pass_row_new();
// Forwards a keyboard signal that came while the screen kept a write waiting, unless an edit has to
// see it first.
void pass_forward_waiting_signal();

// Waiting (pass.cpp).
inline constexpr int kMasterSlot = 0;
inline constexpr int kKeyboardSlot = 1;
// Sleeps until the master, or the keyboard where `keys`, is ready, or `timeout_ns` has passed. With
// `pending`, also until the master takes bytes. A master that hangs is left out and tried again
// every 100 ms. Returns as wait_ready; `fds` (two entries) holds what is ready.
int wait_terminals(int fd, bool keys, bool pending, long timeout_ns, struct pollfd *fds);
// True when the program's side is to be read.
bool master_ready(const struct pollfd *fds);
// Relays program output and serves signals for one wait of at most `timeout_ns`, without the
// keyboard. `pending`: returns also when the master takes bytes. True unless a keyboard signal
// came.
bool relay_once(int fd, bool pending, long timeout_ns);
// A wait has just found keys: see pass_key_expected.
void pass_keys_seen();
// Program output is about to be written to the screen: a line being edited steps aside.
void pass_before_output();
