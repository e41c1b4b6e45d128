// waits.h: the waits that keyboard and program share, and what is read after them (pass.cpp).
#pragma once

#include <poll.h>

// A packet: one header byte and data, read at once. The longest that a master delivers in one read
// is about this.
inline constexpr int kPacketSize = 4096;
// The packet read last, with room for a NUL behind it. It lives until it is written.
extern char buffo[kPacketSize + 1];
// Bytes of the line, the keys or the packet read last; while a line is edited packets are read.
extern int nread;

// The master reports hang-up although the program lives: nobody has the terminal open.
extern int Master_hung_up;

inline constexpr int kMasterSlot = 0;
inline constexpr int kKeyboardSlot = 1;
// Sleeps until the master, or the keyboard where `keys`, is ready, or `timeout_ns` has passed. With
// `pending`, also until the master takes bytes. A master that hangs is left out and tried again
// every 100 ms. Returns as wait_ready; `fds` (two entries) holds what is ready.
int wait_terminals(int fd, bool keys, bool pending, long timeout_ns, struct pollfd *fds);
// True when the program's side is to be read.
bool master_ready(const struct pollfd *fds);
// Relays program output and serves signals for one wait of at most `timeout_ns`, without the
// keyboard. `pending`: returns also when the master takes bytes. True unless a keyboard signal
// came.
bool relay_once(int fd, bool pending, long timeout_ns);
// Forwards a keyboard signal that came while the screen kept a write waiting, unless an edit has to
// see it first.
void pass_forward_waiting_signal();
