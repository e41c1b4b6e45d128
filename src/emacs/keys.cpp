// keys.cpp: the commands that move the cursor, change characters in place, insert them or end the
// line. The word that ^V shows comes from here.
#include <algorithm>
#include <cstring>
#include <utility>

#include "edit/decode.h"
#include "emacs_internal.h"

namespace emacs {

// What `what` and similar tools look for; ^V shows the text behind the marker.
[[gnu::used]] static const char kVersion[] = "@(#)morp emacs editor 1.0";
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
    command.i -= std::min(command.count, command.i);
    return After::update;
}

After rightarrow(Command &command) {
    command.i += std::min(command.count, editb.e_eol - command.i);
    return After::update;
}

After upper_case(Command &command) {
    const int end = command.i + std::min(command.count, editb.e_eol - command.i);
    for (; command.i < end; command.i++) {
        const int c = byte_of(editb.e_inbuf[command.i]);
        if (is_lower(c)) editb.e_inbuf[command.i] = static_cast<genchar>(c - ('a' - 'A'));
    }
    return After::update;
}

// The index of `c` in [from, to), -1 when it isn't there.
static int index_of(int c, int from, int to) {
    for (int k = from; k < to; k++)
        if (byte_of(editb.e_inbuf[k]) == c) return k;
    return -1;
}

After find_character(Command &command) {
    const int c = e_gettyped();
    command.i = editb.e_cur;
    int found = index_of(c, editb.e_cur + 1, editb.e_eol);
    if (found < 0) found = index_of(c, 0, editb.e_cur);
    if (found >= 0) command.i = found;
    return After::update;
}

After transpose(Command &command) {
    genchar *const at = editb.e_inbuf + command.i;
    if ((opt_flag & kStyleGmacs) == 0 && command.i != editb.e_eol) {
        if (editb.e_eol > command.i + 1) {
            std::swap(at[0], at[1]);
            command.i++;
            return After::update;
        }
    } else if (command.i >= 2) {
        std::swap(at[-1], at[-2]);
        return After::update;
    }
    e_ringbell();
    return After::next_key;
}

After insert(Command &command) {
    if (editb.e_eol + 1 >= editb.e_llimit) {
        e_ungetchar(command.c);
        draw(FINAL);
        return After::full;
    }
    genchar *const at = editb.e_inbuf + editb.e_cur;
    std::memmove(at + 1, at, static_cast<std::size_t>(editb.e_eol - editb.e_cur) + 1);
    editb.e_eol++;
    backslash = command.c == '\\' ? 1 : 0;
    *at = static_cast<genchar>(command.c);
    editb.e_cur++;
    draw(APPEND);
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
    std::memcpy(editb.e_inbuf, kVersion + kVersionMarker, sizeof kVersion - kVersionMarker);
    draw(UPDATE);
    e_ungetchar(e_getchar());
    restore_line();
    draw(UPDATE);
    return After::next_key;
}

After end_line(Command & /*command*/) {
    draw(FINAL);
    editb.e_inbuf[editb.e_eol++] = '\n';
    editb.e_inbuf[editb.e_eol] = '\0';
    e_crlf();
    e_reset_prime();
    return After::finish;
}

After end_line_get_next(Command &command) {
    location = {editb.e_hline, editb.e_hloff};
    CntrlO = 1;
    return end_line(command);
}

After end_of_file(Command & /*command*/) {
    draw(FINAL);
    return After::end_of_input;
}

}  // namespace emacs
