// words.cpp: the word scans. A small word is a run of letters and digits or a run of other
// characters that are not blank, a big word a run of everything that is not blank; the base of a
// cluster says which it is. No scan looks outside e_fcol to e_eol.
#include <algorithm>

#include "edit/chars.h"
#include "vi_internal.h"

namespace vi {

bool blank_at(int i) { return unit_blank(char_at(start_at(i))); }
static bool alnum_at(int i) { return unit_word(char_at(start_at(i))); }

// Whether the character at `i` belongs to the word of which a character is alphanumeric (`alnum`)
// or not; a big word takes both.
static bool in_word(int i, bool big, bool alnum) {
    return !blank_at(i) && (big || alnum_at(i) == alnum);
}

void forward(int nwords, int cmd) {
    const bool big = cmd == 'W';
    const int last = editb.e_eol;
    int i = std::max(editb.e_cur, 0);
    for (; nwords > 0 && i < last; nwords--) {
        const bool alnum = alnum_at(i);
        while (i < last && in_word(i, big, alnum)) i++;
        while (i < last && blank_at(i)) i++;
    }
    editb.e_cur = std::min(i, last);
}

void backword(int nwords, int cmd) {
    const bool big = cmd == 'B';
    const int first = editb.e_fcol;
    int i = editb.e_cur;
    for (; nwords > 0 && i > first; nwords--) {
        if (!blank_at(i) && blank_at(i - 1))
            i--;
        else if (!big && alnum_at(i) != alnum_at(i - 1))
            i--;
        while (i >= first && blank_at(i)) i--;
        const bool alnum = i >= first && alnum_at(i);
        while (i >= first && in_word(i, big, alnum)) i--;
        i++;
    }
    editb.e_cur = i;
}

void endword(int nwords, int cmd) {
    const bool big = cmd == 'E';
    const int last = editb.e_eol;
    int i = std::max(editb.e_cur, 0);
    for (; nwords > 0 && i <= last; nwords--) {
        const int start = i;
        if (!blank_at(i)) i = end_at(i);
        while (i <= last && blank_at(i)) i++;
        const bool alnum = i <= last && alnum_at(i);
        while (i <= last && in_word(i, big, alnum)) i++;
        if (i > editb.e_fcol) i = start_at(i - 1);
        if (i == start) break;
    }
    editb.e_cur = std::min(i, last);
}

int word_before(int at, int first) {
    while (at > first && blank_at(at - 1)) at--;
    const bool alnum = at > first && alnum_at(at - 1);
    while (at > first && in_word(at - 1, false, alnum)) at--;
    return at;
}

int word_after(int at) {
    const bool alnum = at <= editb.e_eol && alnum_at(at);
    while (at <= editb.e_eol && in_word(at, false, alnum)) at++;
    while (at <= editb.e_eol && blank_at(at)) at++;
    return at;
}

}  // namespace vi
