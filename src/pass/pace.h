// pace.h: how far the program is with the line sent last, and when the next one may be written.
#pragma once

// Looks how far the program is; true while it has not yet dealt with the line before.
bool line_look(int fd);
// Nanoseconds after which the next line_look is due while it is true.
long line_next_look();
// Program output is about to be read; has been relayed and is in the capture of the prompt.
void line_before_output(int fd);
void line_after_output();
// Before a sleep: where no keys wait, what was kept ready for the next line is given up.
void line_idle();
// A keyboard signal came: nothing waits for the line before any longer.
void line_forget(int fd);

// Waits until a line of `len` bytes may be written, and opens the slave for that: `*peer`, -1 where
// that can't be done. False when a keyboard signal came.
bool await_turn(int fd, int len, int *peer);
// Done with the slave (or -1); while keys are waiting it stays open, as the next line will be there
// in no time.
void give_peer(int peer);
// The line before is not read yet, and this one goes behind it.
bool program_is_busy();
// A whole line was written, behind none unread.
void line_sent();

// What the program has not read.
struct Unread {
    bool any;
    int bytes;  // of finished lines; an end of file counts as none
};
Unread unread_on(int peer);
// Waits for the system's worker; where the slave can't be opened (-1), longer than it ever takes.
void await_worker(int fd, int peer);
// Waits until a line has arrived that was written behind others, of which the program may take some
// meanwhile. `before`: bytes unread when it was written.
void await_arrival(int fd, int peer, int before);
