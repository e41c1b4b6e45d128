// motion.cpp: the cursor motions of command mode. A motion that can't be made leaves the cursor
// where it is.
#include <algorithm>

#include "edit/chars.h"
#include "edit/decode.h"
#include "vi_internal.h"

namespace vi {

static int step(int by, int n) {
    const int bound = by > 0 ? editb.e_eol : editb.e_fcol;
    if (by > 0 ? editb.e_cur >= bound : editb.e_cur <= bound) return -1;
    const int to = editb.e_cur + by * n;
    editb.e_cur = by > 0 ? std::min(to, bound) : std::max(to, bound);
    return 0;
}

static int left(int, int n) { return step(-1, n); }
static int right(int, int n) { return step(1, n); }

static int line_start(int, int) {
    editb.e_cur = std::min(0, editb.e_eol);
    return 0;
}

static int line_end(int, int) {
    editb.e_cur = editb.e_eol;
    return 0;
}

static int first_word(int, int) {
    int i = editb.e_fcol;
    while (i < editb.e_eol && unit_blank(char_at(i))) i++;
    editb.e_cur = std::min(i, editb.e_eol);
    return 0;
}

static int over_words(void (*scan)(int, int), int key, int n) {
    const int start = editb.e_cur;
    if (start < 0) return -1;
    scan(n, key);
    return editb.e_cur == start ? -1 : 0;
}

static int word_forward(int key, int n) { return over_words(forward, key, n); }
static int word_back(int key, int n) { return over_words(backword, key, n); }
static int word_end(int key, int n) { return over_words(endword, key, n); }

static int find(int key, int n) {
    if (key != ';' && key != ',') {
        last_find = key;
        editb.e_fchar = e_gettyped();
    }
    if (last_find == 0 || editb.e_fchar < 0) return -1;
    const bool forwards = (last_find == 'f' || last_find == 't') == (key != ',');
    const int by = forwards ? 1 : -1;
    int i = editb.e_cur;
    for (; n > 0; n--) {
        do {
            i += by;
            if (i < 0 || i > editb.e_eol) return -1;
        } while (static_cast<int>(char_at(i)) != editb.e_fchar);
    }
    if (last_find == 't' || last_find == 'T') i -= by;
    editb.e_cur = i;
    return 0;
}

// Behind an operator the sequence of an arrow key is read here, and read anew when it is repeated.
static int sequence(int, int) { return mvcursor(e_getsequence()); }

struct Motion {
    int key;
    int (*run)(int key, int n);
};
static constexpr Motion kMotions[] = {
    {'h', left},         {ctrl('H'), left},   {'l', right},     {' ', right},
    {'0', line_start},   {'^', first_word},   {'$', line_end},  {'w', word_forward},
    {'W', word_forward}, {'b', word_back},    {'B', word_back}, {'e', word_end},
    {'E', word_end},     {'f', find},         {'F', find},      {'t', find},
    {'T', find},         {';', find},         {',', find},      {kKeyLeft, left},
    {kKeyRight, right},  {kEscape, sequence},
};

int mvcursor(int motion) {
    for (const Motion &m : kMotions)
        if (m.key == motion) return m.run(motion, editb.e_repeat);
    return -1;
}

}  // namespace vi
