// display.cpp: the row that shows the line. draw has the window made as it should be and writes
// only what differs, each differing column.
//
// A line wider than the window is shown from `offset` on, with a marker in the column right of the
// window. The window starts at column 0, behind the prompt, or further right. A prompt that can't
// be written again is overwritten once the window has moved; until then a carriage return would
// lead the editor into columns that it doesn't know, so only backspaces go left.
#include "edit/chars.h"
#include "emacs_internal.h"

namespace emacs {

int offset = 0;
int &overflow = Row.marker;
char scvalid = 0;
bool &cr_ok = Row.home.known;
int prompt_excess = 0;

void putstring(const char *s) {
    for (; *s != '\0'; s++) e_putchar(byte_of(*s));
}

static void set_width(int excess) {
    editb.e_wsize = e_window(editb.e_fd) - 2 - excess;
    Row.width = editb.e_wsize;
}

// A new row: with the prompt, the cursor behind it, or empty.
static void start_row(DRAWTYPE option) {
    set_width(prompt_excess);
    Row.home = {"\r", 0, editb.e_crlf == 1, true};
    Row.start = editb.e_plen;
    row_clear();
    overflow = ' ';
    offset = 0;
    if (option == FIRST) {
        scvalid = 1;
        row_show_prompt();
    }
}

// The quick way for a character typed at the end of the line. Returns false when it isn't open.
static bool echo_typed() {
    const int at = editb.e_cur - 1;
    if (scvalid == 0 || editb.e_cur != text_len() || Row.at >= editb.e_wsize - 1) return false;
    if (!unit_plain(editb.e_inbuf[at]) || text_back(editb.e_cur, 1) != at) return false;
    row_overwrite(editb.e_inbuf[at], 1);
    return true;
}

// Moves the window so that it shows column `p`.
static void scroll_to(int p) {
    if (p > offset && p < offset + editb.e_wsize) return;
    // The row is taken over: nothing may stay behind the marker.
    set_width(0);
    offset = p - editb.e_wsize / 2;
    if (offset < editb.e_plen) offset = editb.e_crlf == 1 && p < editb.e_wsize ? 0 : editb.e_plen;
    if (offset >= editb.e_plen && !cr_ok) {
        row_clear();
        e_putchar('\r');
        overflow = 0;  // whatever stands in the marker's column
        cr_ok = true;
    }
}

void write_differences() {
    bool any = false;
    for (int k = 0; k < editb.e_wsize; k++) {
        if (row_same(k)) continue;
        if (!any && row_unsafe_from(k)) {
            row_write_from(k);
            return;
        }
        any = true;
        row_update(k);
    }
}

static char marker(int columns) {
    const bool hidden_left = offset > editb.e_plen;
    if (columns <= offset + editb.e_wsize) return hidden_left ? '<' : ' ';
    return hidden_left ? '*' : '>';
}

void draw(DRAWTYPE option) {
    if (option == FIRST || option == REFRESH) {
        start_row(option);
        if (option == FIRST) return;
    }
    if (editb.e_index != 0 && option != FINAL) {
        scvalid = 0;
        return;
    }
    if (option == APPEND && echo_typed()) return;
    Row.cut = editb.e_cur;
    const int p = row_column(editb.e_cur);
    scroll_to(p);
    row_want_line(offset);
    write_differences();
    row_mark(marker(row_columns()));
    row_move(p - offset);
    scvalid = 1;
}

void make_up() {
    if (scvalid == 0) draw(UPDATE);
}

}  // namespace emacs
