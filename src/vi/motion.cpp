// motion.cpp: the cursor motions of command mode. A motion that can't be made leaves the cursor
// where it is.
#include <algorithm>

#include "edit/chars.h"
#include "edit/decode.h"
#include "vi_internal.h"

namespace vi {

int start_at(int i) {
    return i < 0 || i >= line_units() ? i : cluster_start(editb.e_inbuf, line_units(), i);
}

int end_at(int i) {
    return i < 0 || i >= line_units() ? i + 1 : cluster_end(editb.e_inbuf, line_units(), i);
}

static int left(int, int n) {
    if (editb.e_cur <= editb.e_fcol) return -1;
    for (; n > 0 && editb.e_cur > editb.e_fcol; n--) editb.e_cur = start_at(editb.e_cur - 1);
    editb.e_cur = std::max(editb.e_cur, editb.e_fcol);
    return 0;
}

static int right(int, int n) {
    const int last = start_at(editb.e_eol);
    if (editb.e_cur >= last) return -1;
    for (; n > 0 && editb.e_cur < last; n--) editb.e_cur = end_at(editb.e_cur);
    return 0;
}

static int line_start(int, int) {
    editb.e_cur = std::min(0, editb.e_eol);
    return 0;
}

static int line_end(int, int) {
    editb.e_cur = start_at(editb.e_eol);
    return 0;
}

static int first_word(int, int) {
    int i = editb.e_fcol;
    while (i < editb.e_eol && blank_at(i)) i++;
    editb.e_cur = start_at(std::min(i, editb.e_eol));
    return 0;
}

static int over_words(void (*scan)(int, int), int key, int n) {
    const int start = editb.e_cur;
    if (start < 0) return -1;
    scan(n, key);
    editb.e_cur = start_at(editb.e_cur);
    return editb.e_cur == start ? -1 : 0;
}

static int word_forward(int key, int n) { return over_words(forward, key, n); }
static int word_back(int key, int n) { return over_words(backword, key, n); }
static int word_end(int key, int n) { return over_words(endword, key, n); }

// Looks for a base.
static int find(int key, int n) {
    if (key != ';' && key != ',') {
        const int wanted = command_argument();
        if (!e_is_text(wanted)) return -1;
        last_find = key;
        editb.e_fchar = wanted;
    }
    if (last_find == 0 || editb.e_fchar < 0) return -1;
    const bool forwards = (last_find == 'f' || last_find == 't') == (key != ',');
    int i = editb.e_cur;
    for (; n > 0; n--) {
        do {
            i = forwards ? end_at(i) : start_at(i - 1);
            if (i < 0 || i > editb.e_eol) return -1;
        } while (static_cast<int>(char_at(i)) != editb.e_fchar);
    }
    if (last_find == 't' || last_find == 'T') i = forwards ? start_at(i - 1) : end_at(i);
    editb.e_cur = i;
    return 0;
}

// Behind an operator the sequence of an arrow key is read here, and read anew when it is repeated.
static int sequence(int, int) { return mvcursor(command_of(e_getsequence())); }

struct Motion {
    int key;
    int (*run)(int key, int n);
};
static constexpr Motion kMotions[] = {
    {'h', left},          // character left
    {ctrl('H'), left},    // character left
    {'l', right},         // character right
    {' ', right},         // character right
    {'0', line_start},    // to the first column
    {'^', first_word},    // to the first character that is not blank
    {'$', line_end},      // to the last character
    {'w', word_forward},  // word forward
    {'W', word_forward},  // word between blanks forward
    {'b', word_back},     // word back
    {'B', word_back},     // word between blanks back
    {'e', word_end},      // end of a word
    {'E', word_end},      // end of a word between blanks
    {'f', find},          // to the next c
    {'F', find},          // the same, back
    {'t', find},          // up to the next c
    {'T', find},          // the same, back
    {';', find},          // the last find again
    {',', find},          // the last find, the other way
    {kEscape, sequence},  // an arrow key behind an operator
};

int mvcursor(int motion) {
    for (const Motion &m : kMotions)
        if (m.key == motion) return m.run(motion, editb.e_repeat);
    return -1;
}

}  // namespace vi
