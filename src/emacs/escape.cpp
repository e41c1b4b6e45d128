// escape.cpp: the commands typed as ESC and a key, and counts typed as ESC and digits. Most push a
// control key back and return the count that it is to run with, so that kill buffer, mark and
// display follow the loop's own rules.
#include "edit/chars.h"
#include "edit/decode.h"
#include "emacs_internal.h"

namespace emacs {

static bool in_word(int position) { return unit_word(editb.e_inbuf[position]); }
static bool in_word_before(int position) { return in_word(text_back(position, 1)); }

// The end of the `words`-th word after the cursor, or the end of the text.
static int forward_word(int words) {
    int i = editb.e_cur;
    for (; words > 0 && i < editb.e_eol; words--) {
        while (i < editb.e_eol && !in_word(i)) i = text_ahead(i, 1);
        while (i < editb.e_eol && in_word(i)) i = text_ahead(i, 1);
    }
    return i;
}

// The start of the `words`-th word before the cursor, or of the text.
static int backward_word(int words) {
    int i = editb.e_cur;
    for (; words > 0 && i > 0; words--) {
        while (i > 0 && !in_word_before(i)) i = text_back(i, 1);
        while (i > 0 && in_word_before(i)) i = text_back(i, 1);
    }
    return i;
}

static int mark_here(int /*value*/) {
    mark_at(editb.e_cur);
    return -1;
}

// The region is deleted and put back, and stays in the kill buffer.
static int copy_region(int /*value*/) {
    e_ungetchar(ctrl('Y'));
    e_ungetchar(ctrl('W'));
    return -1;
}

static int word_right(int value) {
    editb.e_cur = forward_word(value);
    draw(UPDATE);
    return -1;
}

static int delete_word(int value) {
    const int len = text_clusters(editb.e_cur, forward_word(value));
    if (len == 0) {
        e_ringbell();
        return -1;
    }
    e_ungetchar(ctrl('D'));
    return len;
}

static int upper_word(int value) {
    e_ungetchar(ctrl('C'));
    return text_clusters(editb.e_cur, forward_word(value));
}

static int lower_word(int value) {
    for (const int end = forward_word(value); editb.e_cur < end; editb.e_cur++) {
        const genchar lower = unit_to_lower(editb.e_inbuf[editb.e_cur]);
        (void)text_over(editb.e_cur, &lower, 1);  // a longer one that finds no room stays
    }
    draw(UPDATE);
    return -1;
}

static int word_left(int value) {
    editb.e_cur = backward_word(value);
    draw(UPDATE);
    return -1;
}

static int erase_word(int value) {
    e_ungetchar(CODE_ERASE);
    return text_clusters(backward_word(value), editb.e_cur);
}

// The two counts are distances, not typed: they may pass kMaxCount as the history does. From the
// fresh line there is none, -1, and ^N rings.
static int newest(int /*value*/) {
    e_ungetchar(ctrl('N'));
    return editb.e_hismax - editb.e_hline - 1;
}

static int oldest(int /*value*/) {
    e_ungetchar(ctrl('P'));
    return editb.e_hline;
}

struct EscapeBinding {
    int key;
    int (*run)(int value);  // returns the count for the next command, -1 none
};
static constexpr EscapeBinding kEscapeBindings[] = {
    {' ', mark_here},         // set the mark
    {'p', copy_region},       // copy from the mark to the cursor
    {'f', word_right},        // word forward
    {'d', delete_word},       // delete to the end of the word
    {'c', upper_word},        // change the word to upper case
    {'l', lower_word},        // change the word to lower case
    {'b', word_left},         // word back
    {'h', erase_word},        // delete to the start of the word
    {ctrl('H'), erase_word},  // delete to the start of the word
    {127, erase_word},        // delete to the start of the word
    {'>', newest},            // newest line
    {'<', oldest},            // oldest line
};

// The key quotes the ESC, and is then obeyed itself.
static int quote_escape(int ch) {
    e_ungetchar(ch);
    e_ungetchar(kEscape);
    e_ungetchar('\\');
    return -1;
}

static int ring(int /*ch*/) {
    e_ringbell();
    return -1;
}

static int (*unbound)(int ch) = quote_escape;  // chosen once a run

void escape_begin(bool extended) { unbound = extended ? ring : quote_escape; }

int escape(int ch, int count) {
    int value = 0;
    const bool digit = is_digit(ch);
    for (; is_digit(ch); ch = next_key()) value = grow_count(value, 10, ch - '0');
    if (digit) {
        e_ungetkey(ch);
        return value;
    }
    for (const EscapeBinding &binding : kEscapeBindings)
        if (binding.key == ch) return binding.run(count < 0 ? 1 : count);
    return unbound(ch);
}

}  // namespace emacs
