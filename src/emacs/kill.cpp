// kill.cpp: the commands on the kill buffer and the mark. The kill buffer is editb.e_tmp, emptied
// with each line read; the mark is editb.e_fchar.
#include <algorithm>

#include "edit/decode.h"
#include "emacs_internal.h"

namespace emacs {

// Takes the `len` units at `from` out of the line, into the kill buffer.
static void cut(int from, int len) {
    text_copy(*editb.e_tmp, from, len);
    take_units(from, len);
}

After set_mark(Command &command) {
    editb.e_fchar = command.i;
    return After::next_key;
}

After erase(Command &command) {
    const int end = command.i;
    command.i = text_back(end, command.count);
    cut(command.i, end - command.i);
    editb.e_fchar = command.i;
    return After::update;
}

After delete_(Command &command) {
    editb.e_fchar = command.i;
    cut(command.i, text_ahead(command.i, command.count) - command.i);
    return After::update;
}

After kill_to_end(Command &command) {
    if (command.oadjust >= 0) {
        editb.e_fchar = command.oadjust;
        e_ungetchar(ctrl('W'));
        return After::next_key;
    }
    cut(editb.e_cur, editb.e_eol - editb.e_cur);
    editb.e_fchar = editb.e_cur;
    draw(UPDATE);
    return After::next_key;
}

After kill_line(Command &command) {
    editb.e_cur = 0;
    command.oadjust = -1;
    (void)kill_to_end(command);  // draws by itself

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

After control_x(Command &command) {
    if (e_gettyped() != ctrl('X')) {
        e_ringbell();
        return After::next_key;
    }
    command.i = std::min(editb.e_fchar, editb.e_eol);
    editb.e_fchar = editb.e_cur;
    return After::update;
}

After yank(Command & /*command*/) {
    const int len = editb.e_tmp->len;
    if (editb.e_eol + len > std::min(editb.e_llimit, Limits.text - editb.e_plen)) {
        e_ringbell();
        return After::next_key;
    }
    editb.e_fchar = editb.e_cur;
    put_units(editb.e_cur, editb.e_tmp->unit, len);
    editb.e_cur += len;
    draw(UPDATE);
    return After::next_key;
}

}  // namespace emacs
