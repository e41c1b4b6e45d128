// marks.h: the marks that the user's terminal puts around what is pasted (bracketed paste). The
// editors want them; elsewhere they are the program's affair.
#pragma once

// Chooses, once a run: not `wanted`, nothing here does anything.
void marks_begin(bool wanted);
// Has the terminal send marks while editors read the keys (`editing`), else as the program wants
// it. To be called where nothing is half written: before every wait, once the terminal's mode is
// set. What can't be done now is done the next time.
void marks_assert(bool editing);
// As the program wants it, for the terminal goes to somebody else: in a catcher, which waits no
// longer than 100 ms, and at the end (Before_end), which waits for the screen as ever.
void marks_leave();
// `len` keys, in a buffer with kMarkLength - 1 bytes more, are on their way to the program: takes
// marks out that it has not asked for. Returns the bytes left.
int marks_take_out(char *keys, int len);
