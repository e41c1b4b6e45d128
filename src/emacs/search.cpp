// search.cpp: the history search of ^R. While its text is typed the line holds, behind the prompt,
// a caret, the letter R and the text; the real line is kept aside.
#include <algorithm>

#include "edit/chars.h"
#include "edit/decode.h"
#include "emacs_internal.h"

namespace emacs {

int prevdirection = 1;
char string[kSearchSize] = "";

static constexpr int kLead = 2;  // the caret and the R

// The most characters that a search text may have: search buffer and line buffer bound it.
static int text_limit() {
    return std::min(kSearchSize - 1, Limits.joint - 1 - kLead - editb.e_plen);
}

// Puts `c` at index `n` of the text, the cursor behind it.
static void put(int n, int c, DRAWTYPE option) {
    const int at = kLead + n;
    const genchar unit = static_cast<genchar>(c & ~kPasted);
    text_take(at, text_len() - at);
    (void)text_put(at, &unit, 1);  // text_limit has asked for room
    editb.e_cur = text_len();
    draw(option);
}

// Lets the user type the text. Returns false when the search was abandoned.
static bool type_text() {
    int n = 0;  // characters of it
    for (;;) {
        const int c = e_gettyped();
        if (c == '\n' || c == '\r' || c == '\0') return true;
        if (c == editb.e_erase) {
            if (n == 0) {
                e_ringbell();
                continue;
            }
            editb.e_cur = kLead + --n;
            text_take(editb.e_cur, text_len() - editb.e_cur);
            draw(UPDATE);
        } else if (c == editb.e_kill) {
            e_ringbell();
            return false;
        } else if (n >= text_limit()) {
            e_ringbell();
        } else if (c == '\\') {
            put(n, c, APPEND);
            const int quoted = e_gettext();
            // It takes the place of the backslash, which the screen shows by now.
            if (quoted != '\0')
                put(n, quoted, UPDATE);
            else
                e_ringbell();  // the backslash is text then
            n++;
        } else {
            put(n++, c, APPEND);
        }
    }
}

// Searches for the text typed, or again for the last one. Returns true when a line was found, which
// takes the place of the text.
static bool find_text(int direction) {
    const int len = text_len() - kLead;
    if (len == 0 && string[0] == '\0') {
        e_ringbell();
        return false;
    }
    if (direction > 0) {
        direction = -1;
    } else {
        prevdirection = -prevdirection;
        direction = 1;
    }
    if (len > 0) {
        string[bytes_from_units(string, kSearchSize - 1, editb.e_inbuf + kLead, len)] = '\0';
        prevdirection = direction;
    } else {
        direction = prevdirection;
    }
    const histloc found = hist_find(string, editb.e_hline, 1, direction);
    if (found.his_command > 0) {
        editb.e_hline = found.his_command;
        editb.e_hloff = found.his_line;
        recall_line();
        return true;
    }
    e_ringbell();
    editb.e_hline = editb.e_hismax;
    editb.e_hloff = fc_fix != nullptr ? fc_fix->fixline : 0;
    return false;
}

void search(int direction) {
    keep_line();
    (void)text_set(U"^R", kLead);
    editb.e_cur = kLead;
    draw(UPDATE);
    if (type_text() && find_text(direction))
        kept.any = false;
    else
        restore_line();
}

}  // namespace emacs
