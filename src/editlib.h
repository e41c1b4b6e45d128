// editlib.h: the one door through which an edited line is read, and two string utilities.
#pragma once

// Reads one line from `fd` into `line` (kKeyboardBuffer bytes; `n`, at most kLineCapacity, are
// used) with the editor of the style in opt_flag and records it in the history. Returns its length
// in bytes, 0 when input ended or a keyboard signal ended the edit, negative on failure. A
// descriptor other than the user's terminal (0) is read plainly.
int kread(int fd, char *line, int n);

// Copies `a` with its NUL to `b` and returns the address of the copied NUL.
char *e_movstr(const char *a, char *b);
// Writes "name : message" and a newline to standard error and ends the process with status 2. A
// null text counts as empty.
[[noreturn]] void e_failed(const char *name, const char *message);

void kread_reset_for_test();
