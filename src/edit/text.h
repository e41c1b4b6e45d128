// text.h: the characters of the line being edited, and the only doors through which they change.
// They stand in editb.e_inbuf; an index counts units from 0, lengths do without a mark at the end.
// Not to be called by catchers.
#pragma once

#include "morp_defs.h"

// Begins an empty line of at most `units` units, which take at most `bytes` bytes.
void text_begin(int units, int bytes);
int text_len();
// The lowest index at which anything has changed since this was asked last; above any index where
// nothing has.
int text_changed();
// Units that can still be put; fewer where they take several bytes each.
int text_room();
// Puts the `n` units at `units` in at index `at` (0 to text_len()). They may be part of the line.
// False, and no change, where they don't all fit.
bool text_put(int at, const genchar *units, int n);
// Takes the `n` units at `at` out, all of which exist.
void text_take(int at, int n);
// Makes the line what the `n` units at `units` are, as far as they fit. Returns their number.
int text_set(const genchar *units, int n);
// The `n` units at `units` take the place of as many at `at`.
bool text_over(int at, const genchar *units, int n);
// They take the place of the `taken` at `at`.
bool text_replace(int at, int taken, const genchar *units, int n);

// A copy of a line, or of a piece of one.
struct TextCopy {
    int len;
    genchar unit[kLineUnits];
};
// The `n` units at `at`, all of which exist.
void text_copy(TextCopy &copy, int at, int n);
inline void text_copy(TextCopy &copy) { text_copy(copy, 0, text_len()); }
bool text_equals(const TextCopy &copy);

// The place `clusters` after or before index `at`, as far as the line goes; how many there are from
// `from` to `to`.
int text_ahead(int at, int clusters);
int text_back(int at, int clusters);
int text_clusters(int from, int to);

// Is told of each change before it is made: the `taken` units at `at` give way to `n` at `units`.
// Null for nobody; text_begin asks for nobody.
extern void (*Text_watch)(int at, int taken, const genchar *units, int n);
