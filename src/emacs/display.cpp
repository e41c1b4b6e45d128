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
    row_set_width(editb.e_wsize);
}

// The column at which what is scrolled begins: behind the prompt, or with what stands in its place.
static int first_column() { return Row.lead_len > 0 ? 0 : editb.e_plen; }

// A new row: with the prompt, the cursor behind it, or empty.
static void start_row(DRAWTYPE option) {
    set_width(prompt_excess);
    Row.home = {"\r", 0, editb.e_crlf == 1, true};
    Row.start = Row.lead_len > 0 ? row_lead_columns() : editb.e_plen;
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
    const int first = first_column();
    if (offset < first) offset = editb.e_crlf == 1 && p < editb.e_wsize ? 0 : first;
    if (offset >= first && !cr_ok) {
        row_clear();
        e_putchar('\r');
        overflow = 0;  // whatever stands in the marker's column
        cr_ok = true;
    }
}

void blank_row() {
    e_putchar('\r');
    const int marker_column = e_window(editb.e_fd) - 2;
    for (int k = 0; k <= marker_column; k++) e_putchar(' ');
    e_putchar('\r');
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
    const bool hidden_left = offset > first_column();
    if (columns <= offset + editb.e_wsize) return hidden_left ? '<' : ' ';
    return hidden_left ? '*' : '>';
}

// What stands in place of a prompt that can't be written again needs the whole row.
static void take_row() {
    blank_row();
    give_up_prompt();
    start_row(REFRESH);
}

void show_lead(const genchar *units, int n) {
    Row.lead = units;
    Row.lead_len = n;
    Row.start = n > 0 ? row_lead_columns() : editb.e_plen;
    offset = 0;
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
    if (Row.lead_len > 0 && editb.e_crlf == 0) take_row();
    Row.cut = editb.e_cur;
    const int p = row_column(editb.e_cur);
    scroll_to(p);
    row_want_line(offset);
    write_differences();
    row_mark(marker(row_columns(offset + editb.e_wsize)));
    row_move(p - offset);
    scvalid = 1;
}

void make_up() {
    if (scvalid == 0) draw(UPDATE);
}

}  // namespace emacs
