// obeyed.cpp: see obeyed.h. Which bytes these are is asked anew for each line: programs change
// them. No catcher enters it.
#include "obeyed.h"

#include <algorithm>
#include <iterator>

#include "edit/chars.h"
#include "run.h"
#include "tty.h"

// State: chosen once, and the line quoted last.
static bool Wanted = false;
static char Bytes[2 * kLineBuffer];

void obeyed_begin(bool wanted) { Wanted = wanted; }

// A special character, in force where all flags are set.
struct Special {
    int index;
    tcflag_t input;
    tcflag_t local;
};
static constexpr Special kSpecials[] = {
    {VINTR, 0, ISIG},
    {VQUIT, 0, ISIG},
    {VSUSP, 0, ISIG},
    {VSTART, IXON, 0},
    {VSTOP, IXON, 0},
    {VERASE, 0, ICANON},
    {VKILL, 0, ICANON},
    {VEOF, 0, ICANON},
    {VEOL, 0, ICANON},
    {VEOL2, 0, ICANON | IEXTEN},
    {VWERASE, 0, ICANON | IEXTEN},
    {VREPRINT, 0, ICANON | IEXTEN},
    {VLNEXT, 0, ICANON | IEXTEN},
    {VDISCARD, 0, ICANON | IEXTEN},
};

static bool has_all(tcflag_t flags, tcflag_t wanted) { return (flags & wanted) == wanted; }

// A carriage return counts where it would become a newline, or nothing.
static bool is_obeyed(const struct termios &t, int byte) {
    if (byte == '\r' && (t.c_iflag & (ICRNL | IGNCR)) != 0) return true;
    return std::any_of(std::begin(kSpecials), std::end(kSpecials), [&](const Special &special) {
        return tty_special(t, special.index) == byte && has_all(t.c_iflag, special.input) &&
               has_all(t.c_lflag, special.local);
    });
}

static bool can_quote(const struct termios &t) {
    return has_all(t.c_lflag, ICANON | IEXTEN) && tty_special(t, VLNEXT) != kNoKey;
}

Quoted quote_obeyed(const struct termios &t, const char *line, int len) {
    if (!Wanted || !can_quote(t) || len > kLineBuffer) return {line, len};
    int n = 0;
    for (int i = 0; i < len; i++) {
        if (is_obeyed(t, byte_of(line[i]))) Bytes[n++] = static_cast<char>(t.c_cc[VLNEXT]);
        Bytes[n++] = line[i];
    }
    return {Bytes, n};
}

int quoted_done(const struct termios &t, const char *line, int len, int written) {
    if (!Wanted || !can_quote(t)) return written;
    int done = 0;
    for (; done < len && written > 0; done++) written -= is_obeyed(t, byte_of(line[done])) ? 2 : 1;
    return written < 0 ? done - 1 : done;
}

int pass_first_refused(const genchar *units, int n) {
    struct termios t = {};
    if (!Wanted || tcgetattr(master_fd, &t) != 0) return -1;
    if ((t.c_lflag & ICANON) == 0 || can_quote(t)) return -1;
    for (int i = 0; i < n; i++) {
        char bytes[kCharacterBytes];
        const int len = bytes_from_units(bytes, sizeof bytes, units + i, 1);
        if (std::any_of(bytes, bytes + len, [&](char c) { return is_obeyed(t, byte_of(c)); }))
            return i;
    }
    return -1;
}
