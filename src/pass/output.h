// output.h: the program's output.
#pragma once

// Reads one packet from the master and relays it. Returns 0, or -1 when nothing could be read and
// the program is known to be dead.
int handle_fd_stdout(int fd);
// Relays what the master holds, at most 64 KiB.
void relay_waiting(int fd);
// Relays the rest of an escape sequence, of a character, or of a line end of which a read has
// brought the beginning, as far as it comes within 50 ms: a line that comes back in between would
// break it.
void relay_rest_of_piece(int fd);
int handle_fd_except(int fd, int *except_handled);
// Bytes of program output relayed so far, and whether the program flushed its input since the last
// key was read.
extern unsigned long Relayed_bytes;
extern int Input_flushed;
