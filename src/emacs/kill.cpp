// kill.cpp: the commands on the kill buffer and the mark. The kill buffer is editb.e_tmp, a string
// of at most kMaxLine - 1 characters, emptied with each line read; the mark is editb.e_fchar.
#include <algorithm>
#include <cstring>

#include "edit/decode.h"
#include "emacs_internal.h"

namespace emacs {

// Takes the `len` characters at `from` out of the line, into the kill buffer.
static void cut(int from, int len) {
    genchar *const at = editb.e_inbuf + from;
    const std::size_t bytes = static_cast<std::size_t>(len);
    std::memcpy(editb.e_tmp, at, bytes);
    editb.e_tmp[len] = '\0';
    std::memmove(at, at + len, static_cast<std::size_t>(editb.e_eol - from) - bytes + 1);
    editb.e_eol -= len;
}

After set_mark(Command &command) {
    editb.e_fchar = command.i;
    return After::next_key;
}

After erase(Command &command) {
    const int len = std::min(command.count, command.i);
    command.i -= len;
    cut(command.i, len);
    editb.e_fchar = command.i;
    return After::update;
}

After delete_(Command &command) {
    editb.e_fchar = command.i;
    cut(command.i, std::min(command.count, editb.e_eol - command.i));
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
        adjust = editb.e_fchar - command.i;
        e_ungetchar(ctrl('D'));
    } else if (editb.e_fchar < command.i) {
        adjust = command.i - editb.e_fchar;
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
    const int len = static_cast<int>(std::strlen(editb.e_tmp));
    if (editb.e_eol + len > std::min(editb.e_llimit, kMaxText - editb.e_plen)) {
        e_ringbell();
        return After::next_key;
    }
    genchar *const at = editb.e_inbuf + editb.e_cur;
    editb.e_fchar = editb.e_cur;
    std::memmove(at + len, at, static_cast<std::size_t>(editb.e_eol - editb.e_cur) + 1);
    std::memcpy(at, editb.e_tmp, static_cast<std::size_t>(len));
    editb.e_cur += len;
    draw(UPDATE);
    editb.e_eol += len;
    return After::next_key;
}

}  // namespace emacs
