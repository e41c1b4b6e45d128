// delete.cpp: deleting, changing and yanking spans of the line.
#include <algorithm>
#include <cstring>

#include "vi_internal.h"

namespace vi {

void delete_(int nchars, int mode) {
    if (editb.e_cur < editb.e_fcol) {
        e_ringbell();
        return;
    }
    const int rest = editb.e_eol - editb.e_cur + 1;
    nchars = std::min(nchars, rest);
    if (nchars <= 0) return;
    if (mode != 'c') text_copy(yankbuf, editb.e_cur, nchars);
    if (mode != 'y') {
        text_take(editb.e_cur, nchars);
        editb.e_eol -= nchars;
    }
    editb.e_cur--;
}

void del_line(int mode) {
    if (editb.e_eol == -1) return;
    if (mode == RESULT_GOOD) save_v();
    editb.e_cur = 0;
    editb.e_fcol = 0;
    delete_(editb.e_eol + 1, RESULT_BAD);
    refresh(MODE_CONTROL);
    editb.e_cur = editb.e_eol = editb.e_peol = -1;
    editb.e_fchar = -1;
    if (refresh_owed) return;  // the row still shows the line
    Row.at = Row.used = 0;
    win_first() = 0;
    ochar() = 0;
    ocur_phys() = 0;
    ocur_virt() = kNoRefresh;
    ofirst_w() = 0;
    forget_window();
}

// Moves over `motion` with a blank behind the line, so that a motion can reach one past it.
static int move_past_end(int motion) {
    end_blank = text_put(++editb.e_eol, U" ", 1);
    const int moved = mvcursor(motion);
    end_blank = false;
    text_take(editb.e_eol--, 1);
    return moved;
}

// Motions that don't take the character they stop on.
static bool exclusive(int motion) {
    return motion > 0 && motion < 128 && strchr("wWhl \b", motion) != nullptr;
}

// Motions behind which an operator goes on when they can't move.
static bool may_stay(int motion) {
    return exclusive(motion) || (motion > 0 && motion < 128 && strchr("bBeE", motion) != nullptr);
}

int delmotion(int motion, int mode) {
    if (editb.e_cur == -1) return -1;
    if (mode != 'y' && mode != RESULT_BAD) save_v();
    const int begin = editb.e_cur;
    if (move_past_end(motion) != 0 && !may_stay(motion)) return -1;
    int end = editb.e_cur;
    // A change leaves the blanks behind the word.
    if (mode == 'c')
        while (end > begin && blank_at(end - 1)) end--;
    editb.e_cur = std::min(begin, end);
    const int last = std::max(begin, end);
    delete_((exclusive(motion) ? last : end_at(last)) - editb.e_cur, mode);
    if (mode == 'y') editb.e_cur = begin;
    return 0;
}

}  // namespace vi
