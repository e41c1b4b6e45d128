// send.h: lines and keys to the program.
#pragma once

#include <termios.h>

// Writes `blen` bytes of `bf` to the master `fd`. With `echo_off` they are a finished line, which
// the program's terminal doesn't echo and which is written whole, output relayed meanwhile; else as
// much as the master takes at once. Returns the number of bytes done with, or -1 on failure.
int write_to_pty(int fd, const char *bf, int blen, int echo_off);
// The local flags of the program's terminal that the program has set and morp keeps off: ECHO while
// a line is written.
tcflag_t program_held_flags();
// Takes the expected echo of a newline off the start of program output. Returns the bytes to skip.
int echo_to_drop(const char *data, int len, char *late);
void echo_disarm();
// What was sent last had no line end.
bool line_is_open();
// The program has dropped what it had not read.
void line_flushed();
// Where the program's echo could not be put back after a line, tries again. To be called before a
// key is taken.
void line_restore_echo(int fd);
