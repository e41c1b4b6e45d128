// obeyed.h: bytes of a finished line that the program's terminal would obey instead of passing them
// on: its erase or interrupt key in a text that was pasted or quoted.
#pragma once

#include <termios.h>

#include "morp_defs.h"

// Chooses, once a run: not `wanted`, a line goes to the program's terminal as it is.
void obeyed_begin(bool wanted);
// The bytes to write for a line so that it arrives, in a buffer that the next call overwrites or
// where the line is. Where settings `t` have no quoting key they are those of the line.
struct Quoted {
    const char *bytes;
    int len;
};
Quoted quote_obeyed(const struct termios &t, const char *line, int len);
// How many bytes of the line have gone with the first `written` of the quoted ones.
int quoted_done(const struct termios &t, const char *line, int len, int written);
// What EditHost::refused asks.
int pass_first_refused(const genchar *units, int n);
