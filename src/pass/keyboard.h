// keyboard.h: the user's keys on their way to the program.
#pragma once

// Reads keys, or a whole line when editing is in force, and passes them on. Returns 0, or -1 when
// they could not be given to the program.
int handle_stdin_fd(int fd);
// True while a read of the keyboard would find room, and no finished line is pending.
bool keyboard_wanted();
// Bytes that the master did not take are waiting to be written to it.
bool keyboard_pending();
// Writes what is pending. Returns 0, or -1.
int handle_pending(int fd);
// Sends keyboard signal `sig` to the foreground group of the program's terminal. Returns 0.
int handle_signal_general(int fd, int sig);
extern unsigned long Signals_forwarded;
