// emacs.h: the emacs-like line editor and its gmacs variant.
#pragma once

// Chooses the commands, once a run.
void emacs_begin(bool extended);
// Reads and edits one line from the terminal `fd` in `line` (kLineBuffer bytes), of which
// `scend` (at most Limits.capacity) may be used. Returns its length, newline included (a full line
// has none); 0 when input ended, a keyboard signal ended the edit or the edit was taken away
// (e_taken); -1 on a failed read.
int emacs_read(int fd, char *line, int scend);
// To be called when the line returned is in the history: finds the line behind the one that ^O has
// finished.
void emacs_recorded();
// True when there is such a line: emacs_read will show it before its first key.
bool emacs_has_line();
void emacs_reset_for_test();
