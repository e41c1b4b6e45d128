// undo.cpp: the line before the last change, and the text last inserted.
#include <algorithm>

#include "vi_internal.h"

namespace vi {

void set_line(const genchar *text, int len, int cur) {
    editb.e_eol = text_set(text, std::min(len, Limits.text)) - 1;
    editb.e_cur = std::min(std::max(cur, 0), editb.e_eol);
}

void save_v() {
    if (editb.e_inmacro != 0) return;
    text_copy(*editb.e_ubuf);
    editb.e_ucol = editb.e_cur;
}

void restore_v() {
    if (editb.e_ucol == kNothingSaved) {
        e_ringbell();
        return;
    }
    const TextCopy saved = *editb.e_ubuf;
    const int column = editb.e_ucol;
    save_v();  // so that a second undo undoes this one
    set_line(saved, column);
    ocur_virt() = kNoRefresh;
}

void save_last() {
    const int len = std::min(editb.e_cur, editb.e_eol) - editb.e_fcol + 1;
    if (len > 0) text_copy(*editb.e_tmp, editb.e_fcol, len);
}

}  // namespace vi
