// out_row.cpp: what the program left on the screen's row behind its cursor, and where that is. A
// program that ends a piece of output with a carriage return leaves the cursor in front of it: the
// line being edited then stands over that output, which has to be seen again when the line steps
// aside.
#include <algorithm>

#include "edit.h"
#include "edit/chars.h"
#include "edit/edit_internal.h"
#include "edit/prompt.h"

// State: the row as the program printed it, one unit a column and 0 in the second column of a wide
// one, as far as it is known. What is not followed here (tabs, clusters of several units, most
// escape sequences) makes it unknown, mostly up to the next newline.
static genchar Row[kRowColumns];
static int Row_len = 0;  // columns in use
static int Row_at = 0;   // the program's cursor; while the row is unknown 0 or anywhere else, 1
static bool Row_known = true;
static Decoder Character;  // the program's bytes

void out_row_new() {
    Row_len = Row_at = 0;
    Row_known = true;
    Character = {};
}

void out_row_forget() {
    Row_known = false;
    Row_at = 1;
    Character = {};
}

void out_row_leave(bool from_its_start) {
    Row_at = from_its_start ? 0 : 1;
    Character = {};
}

void edit_reset_out_row() { out_row_new(); }

int out_row_rest(genchar *dst) {
    if (!Row_known || Row_len <= Row_at) return 0;
    const int len = Row_len - Row_at;
    std::copy_n(Row + Row_at, len, dst);
    if (dst[0] == 0) dst[0] = ' ';
    return len;
}

int out_row_column() { return Row_known ? Row_at : -1; }

// The other half of a wide character that column `at` belongs to is gone.
static void split_at(int at) {
    if (at <= 0 || at >= Row_len || Row[at] != 0) return;
    Row[at - 1] = Row[at] = ' ';
}

// Whether `u` makes one cluster with what stands before it.
static bool joins_before(genchar u) {
    if (Row_at == 0) return false;
    const genchar pair[] = {Row[Row_at > 1 && Row[Row_at - 1] == 0 ? Row_at - 2 : Row_at - 1], u};
    return cluster_end(pair, 2, 0) == 2;
}

static void put_on_row(genchar u, int width) {
    const int columns = unit_printable(u) ? cluster_shown(&u, 1, 0).columns : 0;
    // At the screen's edge it wraps.
    if (!Row_known || columns == 0 || Row_at + columns > width || joins_before(u)) {
        out_row_forget();
        return;
    }
    for (; Row_len < Row_at + columns; Row_len++) Row[Row_len] = ' ';
    split_at(Row_at);
    split_at(Row_at + columns);
    Row[Row_at] = u;
    std::fill(Row + Row_at + 1, Row + Row_at + columns, 0);
    Row_at += columns;
}

static void put_byte(char c, int width) {
    genchar units[kDecodedUnits];
    const int n = decode_byte(Character, byte_of(c), units);
    for (int i = 0; i < n; i++) put_on_row(units[i], width);
}

void out_row_take(char c, int width) {
    const bool text = byte_of(c) >= 0x80 || is_printable(byte_of(c));
    if (!text && decoder_pending(Character)) out_row_forget();
    if (text) {
        put_byte(c, width);
    } else if (c == '\n') {
        // The program's terminal has put a carriage return in front of it.
        Row_known = Row_at == 0;
        Row_len = 0;
    } else if (c == '\r') {
        Row_at = 0;
    } else if (c == '\b') {
        Row_at = std::max(Row_at - 1, Row_known ? 0 : 1);
    } else if (c != kBell && c != '\0') {
        out_row_forget();
    }
}

// Colours change nothing here; a row that is erased from its start on is known again.
void out_row_take_control(int final, int parameter) {
    const bool all = parameter == '2' || (final == 'J' && parameter == '3');
    const bool to_end = parameter == 0 || parameter == '0';
    if ((final == 'K' || final == 'J') && (all || to_end)) {
        if (Row_at == 0) Row_known = true;
        split_at(Row_at);
        Row_len = all ? 0 : std::min(Row_len, Row_at);
    } else if (final == 'H' && parameter == 0) {
        Row_known = false;
        Row_at = 0;
    } else if (final != 'm') {
        out_row_forget();
    }
}
