// complete.cpp: the command behind a TAB: the word before the cursor, its candidates, what goes in.
#include "edit/complete.h"

#include <algorithm>

#include "edit.h"
#include "edit/chars.h"
#include "edit/complete_internal.h"
#include "edit/seen.h"
#include "edit/text.h"
#include "wait.h"

namespace complete {

// State of the whole run.
static bool Wanted = false;

// State: the last TAB that completed, by the number of keys taken up to it, and where it left the
// cursor. The line is another one when it began anew.
static int Last_keys = 0;
static int Last_at = 0;

static int word_start(int at) {
    const genchar *const line = editb.e_inbuf;
    while (at > 0 && !unit_blank(line[at - 1]) && !ends_word(line[at - 1])) at--;
    return at;
}

static bool blanks_only(int at) {
    return std::all_of(editb.e_inbuf, editb.e_inbuf + at, unit_blank);
}

// Looks for candidates of the word in [from, at). Returns where what they go on with begins.
static int find_candidates(int from, int at) {
    const genchar *const word = editb.e_inbuf + from;
    const int n = at - from;
    time_begin();
    offer_listed(word, n);
    if (candidates_found() > 0 || n == 0) return from;
    offer_used(word, n);
    return from;
}

// What goes in where [from, at) stands.
static Completion what_goes_in(int from, int at) {
    const Units shared = candidates_shared();
    const bool same = shared.len == at - from &&
                      std::equal(shared.unit, shared.unit + shared.len, editb.e_inbuf + from);
    return {same ? Tab::done : Tab::replace, from, shared.unit, shared.len};
}

static Completion complete_word(int at, int room) {
    const int from = find_candidates(word_start(at), at);
    Completion completion = {Tab::done, from, nullptr, 0};
    if (candidates_found() > 0) completion = what_goes_in(from, at);
    if (completion.tab == Tab::replace && completion.n - (at - from) > room)
        completion.tab = Tab::done;
    if (completion.tab == Tab::done) e_ringbell();
    return completion;
}

}  // namespace complete

void complete_begin(bool wanted) {
    complete::Wanted = wanted;
    seen_begin(wanted);
}

Completion complete_at(int at, int room) {
    using namespace complete;
    const bool more = editb.e_index > 0 || keyboard_waiting() > 0;
    if (!Wanted || more || blanks_only(at)) return {Tab::text, at, nullptr, 0};
    if (editb.e_inbuf[at - 1] == '\\') return {Tab::replace, at - 1, U"\t", 1};
    const Completion completion = complete_word(at, room);
    Last_keys = e_keys_taken;
    Last_at = completion.tab == Tab::replace ? completion.from + completion.n : at;
    return completion;
}
