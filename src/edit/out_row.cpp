// out_row.cpp: what the program left on the screen's row behind its cursor, and where that is. A
// program that ends a piece of output with a carriage return leaves the cursor in front of it: the
// line being edited then stands over that output, which has to be seen again when the line steps
// aside.
#include <algorithm>
#include <cstring>

#include "edit.h"
#include "edit/edit_internal.h"
#include "edit/prompt.h"

// State: the row as the program printed it, one plain character a column, as far as it is known.
// What is not followed here (tabs, other alphabets, most escape sequences) makes it unknown, mostly
// up to the next newline.
static char Row[kRowColumns];
static int Row_len = 0;  // columns in use
static int Row_at = 0;   // the program's cursor; while the row is unknown 0 or anywhere else, 1
static bool Row_known = true;

void out_row_new() {
    Row_len = Row_at = 0;
    Row_known = true;
}

void out_row_forget() {
    Row_known = false;
    Row_at = 1;
}

void out_row_leave(bool from_its_start) { Row_at = from_its_start ? 0 : 1; }

void edit_reset_out_row() { out_row_new(); }

int out_row_rest(char *dst) {
    if (!Row_known || Row_len <= Row_at) return 0;
    const int len = Row_len - Row_at;
    std::memcpy(dst, Row + Row_at, static_cast<std::size_t>(len));
    return len;
}

int out_row_column() { return Row_known ? Row_at : -1; }

static void put_on_row(char c, int width) {
    if (!Row_known || Row_at >= width) {  // at the screen's edge it wraps
        out_row_forget();
        return;
    }
    for (; Row_len <= Row_at; Row_len++) Row[Row_len] = ' ';
    Row[Row_at++] = c;
}

void out_row_take(char c, int width) {
    if (c == '\n') {
        // The program's terminal has put a carriage return in front of it.
        Row_known = Row_at == 0;
        Row_len = 0;
    } else if (c == '\r') {
        Row_at = 0;
    } else if (c == '\b') {
        Row_at = std::max(Row_at - 1, Row_known ? 0 : 1);
    } else if (is_printable(byte_of(c))) {
        put_on_row(c, width);
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
        Row_len = all ? 0 : std::min(Row_len, Row_at);
    } else if (final == 'H' && parameter == 0) {
        Row_known = false;
        Row_at = 0;
    } else if (final != 'm') {
        out_row_forget();
    }
}
