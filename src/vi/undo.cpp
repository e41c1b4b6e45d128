// undo.cpp: the line before the last change, and the text last inserted.
#include <algorithm>
#include <cstring>

#include "vi_internal.h"

namespace vi {

void set_line(const genchar *text, int cur) {
    const std::size_t len = std::min(strlen(text), static_cast<std::size_t>(kMaxText));
    memmove(editb.e_inbuf, text, len);
    editb.e_inbuf[len] = '\0';
    editb.e_eol = static_cast<int>(len) - 1;
    editb.e_cur = std::min(std::max(cur, 0), editb.e_eol);
}

void save_v() {
    if (editb.e_inmacro != 0) return;
    editb.e_inbuf[editb.e_eol + 1] = '\0';
    memcpy(editb.e_ubuf, editb.e_inbuf, static_cast<std::size_t>(editb.e_eol) + 2);
    editb.e_ucol = editb.e_cur;
}

void restore_v() {
    if (editb.e_ucol == kNothingSaved) {
        e_ringbell();
        return;
    }
    genchar saved[kMaxLine];
    memcpy(saved, editb.e_ubuf, sizeof saved);
    const int column = editb.e_ucol;
    save_v();  // so that a second undo undoes this one
    set_line(saved, column);
    ocur_virt() = kNoRefresh;
}

void save_last() {
    const int len = std::min(editb.e_cur, editb.e_eol) - editb.e_fcol + 1;
    if (len <= 0) return;
    memcpy(editb.e_tmp, editb.e_inbuf + editb.e_fcol, static_cast<std::size_t>(len));
    editb.e_tmp[len] = '\0';
}

}  // namespace vi
