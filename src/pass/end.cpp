// end.cpp: the end of input. It goes to the program as its own end of file; only at the third key
// in a row, or where there is no such thing, the program's terminal is closed. No catcher enters
// it: it is asked between two waits.
#include "end.h"

#include <termios.h>
#include <unistd.h>
#include <algorithm>

#include "edit.h"
#include "keyboard.h"
#include "output.h"
#include "run.h"
#include "send.h"
#include "tty.h"

// State: end-of-input keys in a row, with what had happened by the last of them.
static int Ends = 0;
static unsigned long Ends_printed = 0;
static unsigned long Ends_signals = 0;

void end_of_input_forget() { Ends = 0; }

// As for the last one in a row.
static int close_master(int fd) {
    (void)close(fd);
    master_fd = -1;
    return 0;
}

int end_of_input(int fd, char *dst) {
    constexpr int kEnough = 3;
    relay_waiting(fd);
    const bool in_row =
        e_keys_taken <= 1 && Ends_printed == Relayed_bytes && Ends_signals == Signals_forwarded;
    Ends = in_row ? Ends + 1 : 1;
    Ends_printed = Relayed_bytes;
    Ends_signals = Signals_forwarded;
    struct termios t = {};
    const bool known = tcgetattr(fd, &t) == 0;
    const int c = known ? tty_special(t, VEOF) : 0;
    if (Ends == kEnough || c == kNoKey || e_gone != 0) return close_master(fd);
    if (!known || (t.c_lflag & ICANON) == 0) return 0;
    // Behind an unfinished line the first one only ends the line.
    const int len = line_is_open() ? 2 : 1;
    std::fill_n(dst, len, static_cast<char>(c));
    return len;
}
