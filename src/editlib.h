// editlib.h: the one door through which an edited line is read.
#pragma once

// Chooses, once a run and before the first line, what characters and keys are: by the style,
// which goes into opt_flag, and in extended mode by the user's locale.
void kread_begin();
// Reads one line from `fd` into `line` (kLineBuffer bytes; `n`, at most Limits.capacity, are
// used) with the editor of the style in opt_flag. Returns its length in bytes, 0 when input ended
// or a keyboard signal ended the edit, negative on failure. A descriptor other than the user's
// terminal (0) is read plainly.
//
// What has no newline (a full line, text ended by vi's end-of-file key) is a piece of a line: the
// history gets the pieces as one command when the newline has come, at most their first 4,095
// bytes.
int kread(int fd, char *line, int n);
// True when kread will show a line before its first key: it is to be called without one.
bool kread_has_line();
// Drops the pieces read so far: a keyboard signal came, or editing is no longer in force.
void kread_forget();

void kread_reset_for_test();
