// search.cpp: the history search. Its text is typed in place of the line, behind a / or ?.
#include <algorithm>
#include <cstring>

#include "edit/chars.h"
#include "history.h"
#include "vi_internal.h"

namespace vi {

// Lets the user type the text. `mode` is / or ?.
static void read_pattern(int mode) {
    del_line(RESULT_BAD);
    append(mode, MODE_APPEND);
    refresh(MODE_INPUT);
    editb.e_fcol = 1;  // the / can be erased only to give up
    searching = true;
    VIgetline(MODE_SEARCH);
    searching = false;
    editb.e_fcol = 0;
    direction = mode == '/' ? -1 : 1;
}

int search(int mode) {
    const bool typed = mode == '/' || mode == '?';
    if (typed) read_pattern(mode);
    if (editb.e_cur == -1) return -2;

    char pattern[kLineBuffer];
    const int len = bytes_from_units(pattern, kLineBuffer - 1, editb.e_inbuf + 1, editb.e_eol);
    pattern[std::max(len, 0)] = '\0';
    if (!typed || editb.e_eol == 0) {
        del_line(RESULT_BAD);
        memcpy(pattern, editb.e_search, strlen(editb.e_search) + 1);
    }
    const int towards = mode == 'N' ? -direction : direction;
    int from = editb.e_hline;
    if (towards > 0 && from >= editb.e_hismax) from = editb.e_hismin + 1;
    int found = from;
    do {
        found = hist_find(pattern, found, 1, towards).his_command;
    } while (found >= 0 && !recallable(found));
    if (found < 0) return -1;
    editb.e_hline = found;
    memcpy(editb.e_search, pattern, strlen(pattern) + 1);
    return 0;
}

}  // namespace vi
