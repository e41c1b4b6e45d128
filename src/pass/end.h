// end.h: the end of input.
#pragma once

// An end-of-input key on an empty line: puts what tells the program of it into `dst` (2 bytes) and
// returns its length. 0 where nothing can tell it, and where the master was closed instead: at the
// third such key in a row, and where the program's terminal has no end-of-file key or the user's is
// gone.
int end_of_input(int fd, char *dst);
// Something else was given to the program: the next end-of-input key is the first in a row.
void end_of_input_forget();
