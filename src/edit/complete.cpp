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

// The index behind a quote that is open at `at`, -1 for none. An apostrophe within a word is none.
static int open_quote(int at) {
    const genchar *const line = editb.e_inbuf;
    int start = -1;
    for (int i = 0; i < at; i++) {
        const bool apart = i == 0 || unit_blank(line[i - 1]) || ends_word(line[i - 1]);
        if (start >= 0)
            start = line[i] == line[start - 1] ? -1 : start;
        else if (line[i] == '"' || (line[i] == '\'' && apart))
            start = i + 1;
    }
    return start;
}

// What the candidates are to stand for: the units from `from` on. `names`: they are files, and
// `quote` ends the name of one, 0 none.
struct Place {
    int from;
    bool names;
    genchar quote;
};

static bool is_path(int from, int at) {
    const genchar *const line = editb.e_inbuf;
    return from < at && (line[from] == '~' || std::find(line + from, line + at, U'/') != line + at);
}

// Names behind a quote have their blanks and all else, and end with it; else the last word there
// may begin one.
static Place find_names(int word, int quoted, int at) {
    const genchar *const line = editb.e_inbuf;
    const genchar quote = quoted >= 0 ? line[quoted - 1] : 0;
    if (quoted >= 0) {
        const int from = quoted + offer_names(line + quoted, at - quoted, quote);
        if (candidates_found() > 0) return {from, true, quote};
    }
    return {word + offer_names(line + word, at - word, quote), true, 0};
}

static Place find_candidates(int at) {
    const int word = word_start(at);
    const int quoted = open_quote(at);
    const bool path = is_path(word, at) || (quoted >= 0 && is_path(quoted, at));
    Place place = {word, false, 0};
    time_begin();
    offer_listed(editb.e_inbuf + word, at - word);
    if (candidates_found() > 0) return place;
    if (path) place = find_names(word, quoted, at);
    if (candidates_found() > 0) return place;
    // All words there are would be candidates of nothing.
    if (word < at) offer_used(editb.e_inbuf + word, at - word);
    if (candidates_found() > 0) return {word, false, 0};
    return find_names(word, quoted, at);
}

// What goes in where the units from `place` to `at` stand.
static Completion what_goes_in(const Place &place, int at) {
    static genchar goes_in[kMostBytes + 1];
    const Units shared = candidates_shared();
    genchar *end = std::copy_n(shared.unit, shared.len, goes_in);
    if (place.names && candidates_found() == 1) {
        if (names_folder())
            *end++ = '/';
        else if (place.quote != 0)
            *end++ = place.quote;
    }
    const genchar *const line = editb.e_inbuf;
    const bool same = std::equal(goes_in, end, line + place.from, line + at);
    return {same ? Tab::done : Tab::replace, place.from, goes_in, static_cast<int>(end - goes_in)};
}

// True where the line has no room for it. Units of other case may take other room.
static bool too_long(const Completion &completion, int at, int room) {
    const int typed = at - completion.from;
    const int more = bytes_of_units(completion.unit, completion.n) -
                     bytes_of_units(editb.e_inbuf + completion.from, typed);
    return completion.n - typed > room || more > text_room();
}

// `again`: the key before was a TAB, and nothing has been typed since.
static Completion complete_word(int at, int room, bool again) {
    const Place place = find_candidates(at);
    const Completion none = {Tab::done, at, nullptr, 0};
    const Completion completion = candidates_found() > 0 ? what_goes_in(place, at) : none;
    if (completion.tab == Tab::replace && !too_long(completion, at, room)) return completion;
    if (completion.tab == Tab::done && again && candidates_found() > 0)
        show_candidates();
    else
        e_ringbell();
    return none;
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
    const bool again = e_keys_taken == Last_keys + 1 && at == Last_at;
    const Completion completion = complete_word(at, room, again);
    Last_keys = e_keys_taken;
    Last_at = completion.tab == Tab::replace ? completion.from + completion.n : at;
    return completion;
}
