// vi.h: the vi-like line editor.
#pragma once

// Reads and edits one line from the terminal `fd` in `shbuf` (kLineBuffer bytes), of which
// `nchar` (at most Limits.capacity) may be used. Returns its length, newline included when there is
// one; 0 when input ended, a keyboard signal ended the edit or the edit was taken away (e_taken);
// -1 on a failed read.
int vi_read(int fd, unsigned char *shbuf, int nchar);
void vi_reset_for_test();
