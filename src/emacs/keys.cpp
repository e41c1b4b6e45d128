// keys.cpp: the commands that move the cursor, change characters in place, insert them or end the
// line. The word that ^V shows comes from here.
#include <algorithm>
#include <cstring>

#include "edit/chars.h"
#include "edit/complete.h"
#include "edit/decode.h"
#include "edit/prompt.h"
#include "emacs/undo.h"
#include "emacs_internal.h"

namespace emacs {

// What `what` and similar tools look for; ^V shows the text behind the marker.
[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp emacs editor 1.0";
static constexpr int kVersionMarker = 4;

After line_start(Command &command) {
    command.i = 0;
    return After::update;
}

After line_end(Command &command) {
    command.i = editb.e_eol;
    return After::update;
}

After leftarrow(Command &command) {
    command.i = text_back(command.i, command.count);
    return After::update;
}

After rightarrow(Command &command) {
    command.i = text_ahead(command.i, command.count);
    return After::update;
}

After upper_case(Command &command) {
    const int end = text_ahead(command.i, command.count);
    for (; command.i < end; command.i++) {
        const genchar upper = unit_to_upper(editb.e_inbuf[command.i]);
        (void)text_over(command.i, &upper, 1);  // a longer one that finds no room stays
    }
    return After::update;
}

// The index of a cluster whose base is `c` in [from, to), -1 when there is none.
static int index_of(int c, int from, int to) {
    for (int k = from; k < to; k = text_ahead(k, 1))
        if (static_cast<int>(editb.e_inbuf[k]) == c) return k;
    return -1;
}

After find_character(Command &command) {
    const int c = e_gettyped() & ~kPasted;
    if (c >= kKeyBase) e_ringbell();
    command.i = editb.e_cur;
    int found = index_of(c, text_ahead(editb.e_cur, 1), editb.e_eol);
    if (found < 0) found = index_of(c, 0, editb.e_cur);
    if (found >= 0) command.i = found;
    return After::update;
}

// Exchanges the clusters [from, middle) and [middle, to).
static void exchange(int from, int middle, int to) {
    genchar both[2 * kMostJoined];
    genchar *const end = std::copy(editb.e_inbuf + middle, editb.e_inbuf + to, both);
    std::copy(editb.e_inbuf + from, editb.e_inbuf + middle, end);
    (void)text_over(from, both, to - from);  // takes as much room as before
}

After transpose(Command &command) {
    const bool ahead = (opt_flag & kStyleGmacs) == 0 && command.i != editb.e_eol;
    const int middle = ahead ? text_ahead(command.i, 1) : text_back(command.i, 1);
    const int far = ahead ? text_ahead(middle, 1) : text_back(middle, 1);
    if (far == middle) {
        e_ringbell();
        return After::next_key;
    }
    if (ahead) {
        exchange(command.i, middle, far);
        command.i += far - middle;
    } else {
        exchange(far, middle, command.i);
    }
    return After::update;
}

After delete_ahead(Command &command) {
    return command.i < editb.e_eol ? delete_character(command) : After::next_key;
}

After insert(Command &command) {
    if (editb.e_eol + 1 >= editb.e_llimit) {
        e_ungetchar(command.c);
        draw(FINAL);
        return After::full;
    }
    const bool pasted = (command.c & kPasted) != 0;
    undo_typing(pasted ? decode_pastes() : 0);
    const genchar unit = static_cast<genchar>(command.c & ~kPasted);
    if (!put_units(editb.e_cur, &unit, 1)) return After::next_key;
    backslash = command.c == '\\' ? 1 : 0;
    editb.e_cur++;
    draw(APPEND);
    return After::next_key;
}

After complete_word(Command &command) {
    const Completion done = complete_at(command.i, text_room());
    if (done.tab == Tab::text) return insert(command);
    if (done.tab == Tab::done) return After::next_key;
    const int typed = command.i - done.from;
    if (!put_units(command.i, done.unit + typed, done.n - typed)) return After::next_key;
    (void)text_over(done.from, done.unit, typed);  // where letters change case
    command.i += done.n - typed;
    return After::update;
}

After undo(Command &command) {
    keep_newest();
    for (int n = 0; n < command.count; n++) {
        if (undo_step()) continue;
        e_ringbell();
        break;
    }
    command.i = editb.e_cur;
    return After::update;
}

After control_x_or_undo(Command &command) {
    const int key = e_gettyped();
    if (key == ctrl('U')) return undo(command);
    e_ungetkey(key);
    if ((key & kPasted) == 0) return control_x(command);
    e_ringbell();
    return After::next_key;
}

After multiply_count(Command &command) {
    adjust = grow_count(command.count, 4, 0);
    return After::next_key;
}

After refresh(Command & /*command*/) {
    e_crlf();
    draw(REFRESH);
    return After::next_key;
}

After show_version(Command & /*command*/) {
    keep_line();
    editb.e_cur = 0;
    genchar version[sizeof kVersion];
    (void)text_set(version, units_from_bytes(version, sizeof kVersion, kVersion + kVersionMarker,
                                             sizeof kVersion - kVersionMarker - 1));
    draw(UPDATE);
    e_ungetchar(e_getchar());
    restore_line();
    draw(UPDATE);
    return After::next_key;
}

After end_line(Command &command) {
    if (e_refused(&command.i)) return After::update;
    draw(FINAL);
    e_crlf();
    e_reset_prime();
    return After::finish;
}

After end_line_get_next(Command &command) {
    const histloc here = {editb.e_hline, editb.e_hloff};
    const After after = end_line(command);
    if (after != After::finish) return after;
    location = here;
    CntrlO = 1;
    return after;
}

After end_of_file(Command & /*command*/) {
    draw(FINAL);
    return After::end_of_input;
}

}  // namespace emacs
