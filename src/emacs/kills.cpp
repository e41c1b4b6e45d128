// kills.cpp: see kills.h. A kill never grows beyond a line: those that are one come from one line,
// which only shrinks meanwhile.
#include "emacs/kills.h"

#include <algorithm>

#include "emacs_internal.h"

namespace emacs {

// State: chosen once a run.
static bool Live_on = false;

// State: a ring, of which pages that no kill has reached stay untouched.
static TextCopy Kills[kMostKills];
static int Newest = 0;
static int Count = 0;

// State: the commands that have killed and put in last, by their turn; which kill, counted back
// from the newest, was put in.
static int Killed = -1;
static int Yanked = -1;
static int Shown = 0;

void kills_begin(bool extended) { Live_on = extended; }

void kills_line() {
    editb.e_tmp = &Kills[Newest];
    if (!Live_on) editb.e_tmp->len = 0;
}

static TextCopy &begin_kill() {
    Newest = (Newest + 1) % kMostKills;
    Count = std::min(Count + 1, kMostKills);
    editb.e_tmp = &Kills[Newest];
    editb.e_tmp->len = 0;
    return *editb.e_tmp;
}

void kills_keep(int from, int at, int to) {
    if (!Live_on) {
        text_copy(*editb.e_tmp, from, to - from);
        return;
    }
    const bool follows = Killed == turn || Killed == turn - 1;
    if (follows) Killed = turn;
    if (from == to) return;
    Killed = turn;
    const bool fits = to - from <= kLineUnits - editb.e_tmp->len;
    TextCopy &kill = follows && fits ? *editb.e_tmp : begin_kill();
    const int before = at - from;
    std::move_backward(kill.unit, kill.unit + kill.len, kill.unit + kill.len + before);
    std::copy_n(editb.e_inbuf + from, before, kill.unit);
    std::copy_n(editb.e_inbuf + at, to - at, kill.unit + kill.len + before);
    kill.len += to - from;
}

void kills_copy(int from, int to) { text_copy(begin_kill(), from, to - from); }

void kills_yanked() {
    Yanked = turn;
    Shown = 0;
}

const TextCopy *kills_before() {
    if (Yanked != turn - 1 || Count < 2) return nullptr;
    Yanked = turn;
    Shown = (Shown + 1) % Count;
    return &Kills[(Newest - Shown + kMostKills) % kMostKills];
}

void kills_reset_for_test() {
    Newest = Count = 0;
    Killed = Yanked = -1;
    for (TextCopy &kill : Kills) kill.len = 0;
}

}  // namespace emacs
