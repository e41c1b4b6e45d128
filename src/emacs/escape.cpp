// escape.cpp: the commands typed as ESC and a key, and counts typed as ESC and digits. Most push a
// control key back and return the count that it is to run with, so that kill buffer, mark and
// display follow the loop's own rules.
#include <algorithm>

#include "edit/decode.h"
#include "emacs_internal.h"

namespace emacs {

static bool in_word(const genchar *out, int position) { return is_alnum(byte_of(out[position])); }

// The end of the `words`-th word after the cursor, or the end of the text.
static int forward_word(const genchar *out, int words) {
    int i = editb.e_cur;
    for (; words > 0 && i < editb.e_eol; words--) {
        while (i < editb.e_eol && !in_word(out, i)) i++;
        while (i < editb.e_eol && in_word(out, i)) i++;
    }
    return i;
}

// The start of the `words`-th word before the cursor, or of the text.
static int backward_word(const genchar *out, int words) {
    int i = editb.e_cur;
    for (; words > 0 && i > 0; words--) {
        i--;
        while (i > 0 && !in_word(out, i)) i--;
        while (i > 0 && in_word(out, i - 1)) i--;
    }
    return i;
}

static int mark_here(genchar * /*out*/, int /*value*/) {
    editb.e_fchar = editb.e_cur;
    return -1;
}

// The region is deleted and put back, and stays in the kill buffer.
static int copy_region(genchar * /*out*/, int /*value*/) {
    e_ungetchar(ctrl('Y'));
    e_ungetchar(ctrl('W'));
    return -1;
}

static int word_right(genchar *out, int value) {
    editb.e_cur = forward_word(out, value);
    draw(UPDATE);
    return -1;
}

static int delete_word(genchar *out, int value) {
    const int len = forward_word(out, value) - editb.e_cur;
    if (len == 0) {
        e_ringbell();
        return -1;
    }
    e_ungetchar(ctrl('D'));
    return len;
}

static int upper_word(genchar *out, int value) {
    e_ungetchar(ctrl('C'));
    return forward_word(out, value) - editb.e_cur;
}

static int lower_word(genchar *out, int value) {
    for (const int end = forward_word(out, value); editb.e_cur < end; editb.e_cur++) {
        const int c = byte_of(out[editb.e_cur]);
        if (is_upper(c)) out[editb.e_cur] = static_cast<genchar>(c + ('a' - 'A'));
    }
    draw(UPDATE);
    return -1;
}

static int word_left(genchar *out, int value) {
    editb.e_cur = backward_word(out, value);
    draw(UPDATE);
    return -1;
}

static int erase_word(genchar *out, int value) {
    e_ungetchar(CODE_ERASE);
    return editb.e_cur - backward_word(out, value);
}

// The two counts are distances, not typed: they may pass kMaxCount as the history does. From the
// fresh line there is none, -1, and ^N rings.
static int newest(genchar * /*out*/, int /*value*/) {
    e_ungetchar(ctrl('N'));
    return editb.e_hismax - editb.e_hline - 1;
}

static int oldest(genchar * /*out*/, int /*value*/) {
    e_ungetchar(ctrl('P'));
    return editb.e_hline;
}

struct EscapeBinding {
    int key;
    int (*run)(genchar *out, int value);  // returns the count for the next command, -1 none
};
static constexpr EscapeBinding kEscapeBindings[] = {
    {' ', mark_here},        {'p', copy_region}, {'f', word_right}, {'d', delete_word},
    {'c', upper_word},       {'l', lower_word},  {'b', word_left},  {'h', erase_word},
    {ctrl('H'), erase_word}, {127, erase_word},  {'>', newest},     {'<', oldest},
};

int escape(int ch, int count) {
    int value = 0;
    const bool digit = is_digit(ch);
    for (; is_digit(ch); ch = next_key()) value = grow_count(value, 10, ch - '0');
    if (digit) {
        e_ungetkey(ch);
        return value;
    }
    for (const EscapeBinding &binding : kEscapeBindings)
        if (binding.key == ch) return binding.run(editb.e_inbuf, count < 0 ? 1 : count);
    // An unbound key quotes the ESC, and is then obeyed itself.
    e_ungetchar(ch);
    e_ungetchar(kEscape);
    e_ungetchar('\\');
    return -1;
}

}  // namespace emacs
