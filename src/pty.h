// pty.h: allocation of the pseudo-terminal and start of the program on it.
#pragma once

#include <sys/types.h>
#include <termios.h>

// Opens and unlocks a new master. Returns its descriptor, or a negative value with errno set.
int pty_master();
// Opens the slave that pty_master recorded, close-on-exec. Returns its descriptor, or -1 after
// closing `master`.
int pty_slave(int master);
// Name of the master device: empty, the clone device has none.
char *pty_dname();
// Path of the slave device, at most 25 characters; "<UNSET>" while unknown.
char *pty_dname_slave();
// Switches packet mode on: each read of the master yields a header byte before the data. A failure
// ends the process.
void pty_pkt_enable(int fd);
// Input flags that the slave gets beside the user's.
extern tcflag_t pty_input_flags;
// Creates the pair, starts `argv_p` on the slave as leader of a new session, with the settings of
// Tty_original and pty_input_flags. Stores the master (close-on-exec, non-blocking) through `mfd`
// and returns the child's process id. Failures end the process.
pid_t pty_fork(int *mfd, char **argv_p);
// Waits until the child has become the program, signals served. 0 when it has; else its message is
// on the slave or on standard error, it ends, and the result is the exit status that tells why: 127
// when the program was not found, 126 when it could not be run, 1 for anything else.
int pty_start_status();
// Opens the slave of `master` a second time, without making it anybody's controlling terminal, for
// reading and writing, non-blocking and close-on-exec. -1 when that can't be done.
int pty_open_peer(int master);
