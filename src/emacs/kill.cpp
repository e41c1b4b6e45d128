// kill.cpp: the commands that delete, put in again what was deleted (kills.h), and set the mark,
// editb.e_fchar.
#include <algorithm>

#include "edit/chars.h"
#include "edit/decode.h"
#include "emacs/kills.h"
#include "emacs_internal.h"

namespace emacs {

// State of the line: the user has set the mark.
static bool Marked = false;
// Units that ^Y and what replaces them have put in last.
static int Put_in = 0;

void begin_marks() { Marked = false; }

void mark_at(int at) {
    Marked = true;
    editb.e_fchar = at;
}

// Kills the units [from, to), the cursor at `at` among them.
static void cut(int from, int at, int to) {
    kills_keep(from, at, to);
    take_units(from, to - from);
}

After set_mark(Command &command) {
    mark_at(command.i);
    return After::next_key;
}

After erase(Command &command) {
    const int end = command.i;
    command.i = text_back(end, command.count);
    cut(command.i, end, end);
    editb.e_fchar = command.i;
    return After::update;
}

After delete_(Command &command) {
    editb.e_fchar = command.i;
    cut(command.i, command.i, text_ahead(command.i, command.count));
    return After::update;
}

// A single character is no kill.

After erase_character(Command &command) {
    if (command.oadjust >= 0) return erase(command);
    const int end = command.i;
    command.i = editb.e_fchar = text_back(end, 1);
    take_units(command.i, end - command.i);
    return After::update;
}

After delete_character(Command &command) {
    if (command.oadjust >= 0) return delete_(command);
    editb.e_fchar = command.i;
    take_units(command.i, text_ahead(command.i, 1) - command.i);
    return After::update;
}

After kill_to_end(Command &command) {
    if (command.oadjust >= 0) {
        editb.e_fchar = command.oadjust;
        e_ungetchar(ctrl('W'));
        return After::next_key;
    }
    cut(editb.e_cur, editb.e_cur, editb.e_eol);
    editb.e_fchar = editb.e_cur;
    draw(UPDATE);
    return After::next_key;
}

// Kills what is between the cursor and index `to`, whole clusters.
static After kill_up_to(Command &command, int to) {
    const int from = cluster_start(editb.e_inbuf, text_len(), std::min(command.i, to));
    const int end = text_ahead(from, text_clusters(from, std::max(command.i, to)));
    cut(from, command.i, end);
    command.i = editb.e_fchar = from;
    return After::update;
}

After kill_to_end_or_column(Command &command) {
    const bool column = command.oadjust >= 0;
    return kill_up_to(command, column ? text_ahead(0, command.oadjust) : editb.e_eol);
}

After kill_line(Command &command) {
    cut(0, command.i, editb.e_eol);
    editb.e_cur = editb.e_fchar = 0;
    draw(UPDATE);

    if (terminal == PAPER) putstring("\r\n");
    const int key = e_getchar();
    if (key != editb.e_kill) {
        e_ungetchar(key);
    } else if (terminal == PAPER) {
        terminal = CRT;
    } else {
        terminal = PAPER;
        putstring("\r\n");
    }
    return After::next_key;
}

After delete_region(Command &command) {
    editb.e_fchar = std::min(editb.e_fchar, editb.e_eol);
    if (editb.e_fchar > command.i) {
        adjust = text_clusters(command.i, editb.e_fchar);
        e_ungetchar(ctrl('D'));
    } else if (editb.e_fchar < command.i) {
        adjust = text_clusters(editb.e_fchar, command.i);
        e_ungetchar(CODE_ERASE);
    }
    return After::next_key;
}

static bool blank_before(int at) { return unit_blank(editb.e_inbuf[text_back(at, 1)]); }

// The start of the `words`-th word before index `at`, words being apart by blanks.
static int blank_word_before(int at, int words) {
    for (; words > 0 && at > 0; words--) {
        while (at > 0 && blank_before(at)) at = text_back(at, 1);
        while (at > 0 && !blank_before(at)) at = text_back(at, 1);
    }
    return at;
}

After kill_region_or_word(Command &command) {
    if (Marked) return kill_up_to(command, std::min(editb.e_fchar, editb.e_eol));
    if (command.i > 0) return kill_up_to(command, blank_word_before(command.i, command.count));
    e_ringbell();
    return After::next_key;
}

After drop_pending(Command & /*command*/) {
    begin_marks();
    editb.e_fchar = 0;
    e_ringbell();
    return After::next_key;
}

After keep_region(Command &command) {
    const int mark = std::min(editb.e_fchar, editb.e_eol);
    if (mark == command.i) return yank(command);
    editb.e_fchar = std::min(mark, command.i);
    command.i = std::max(mark, command.i);
    kills_copy(editb.e_fchar, command.i);
    return After::update;
}

After control_x(Command &command) {
    if (e_gettyped() != ctrl('X')) {
        e_ringbell();
        return After::next_key;
    }
    command.i = std::min(editb.e_fchar, editb.e_eol);
    editb.e_fchar = editb.e_cur;
    return After::update;
}

After yank(Command &command) {
    const int len = editb.e_tmp->len;
    if (editb.e_eol + len > yank_limit()) {
        e_ringbell();
        return After::next_key;
    }
    if (!put_units(command.i, editb.e_tmp->unit, len)) return After::next_key;
    kills_yanked();
    editb.e_fchar = command.i;
    Put_in = len;
    command.i += len;
    return After::update;
}

After yank_before(Command &command) {
    const TextCopy *kill = kills_before();
    if (kill == nullptr) {
        e_ringbell();
        return After::next_key;
    }
    if (!replace_units(editb.e_fchar, Put_in, kill->unit, kill->len)) return After::next_key;
    Put_in = kill->len;
    command.i = editb.e_fchar + Put_in;
    return After::update;
}

}  // namespace emacs
