// editlib.h: the one door through which an edited line is read.
#pragma once

// Reads one line from `fd` into `line` (kKeyboardBuffer bytes; `n`, at most kLineCapacity, are
// used) with the editor of the style in opt_flag and records it in the history. Returns its length
// in bytes, 0 when input ended or a keyboard signal ended the edit, negative on failure. A
// descriptor other than the user's terminal (0) is read plainly.
int kread(int fd, char *line, int n);

void kread_reset_for_test();
