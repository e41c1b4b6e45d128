// ploop.h: the main loop.
#pragma once

// Relays between keyboard, program and screen until the program has ended or the master `fd` is
// closed. Ends through finish(1) on a fatal error.
void pass_loop(int fd);
