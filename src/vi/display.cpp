// display.cpp: the row that shows the line behind the prompt. A refresh has the window made as it
// should be and writes it from the first difference on; in the column after it a marker tells on
// which sides the line goes on. Only printable characters, backspaces and the carriage return that
// begins the prompt are written.
#include <algorithm>
#include <cstring>
#include <string>

#include "vi_internal.h"

namespace vi {

int columns_of(int count) { return row_column(std::min(count, text_len())); }

// The last column of what ends before index `end`, where the cursor is: that of the image when the
// image was cut before it, 0 without any.
static int cursor_column(int end) {
    const int cols = columns_of(end);
    return cols > 0 ? cols - 1 : 0;
}

void pr_string(const char *s) {
    if (s != nullptr) e_write(s, strlen(s));
}

void pr_prompt() { pr_string(editb.e_prompt); }

void putstring(int col, int nchars) {
    for (int i = col; i < col + nchars; i++)
        e_putchar(i <= editb.e_peol ? static_cast<int>(editb.e_physbuf[i]) : ' ');
}

void cursor(int x) { row_move(x - win_first()); }

void clear_row() {
    const int known = e_columns();
    e_putchar('\r');
    for (int left = known > 0 ? known : e_window(editb.e_fd); left > 0; left--) e_putchar(' ');
    e_putchar('\r');
}

void rub_out(int count) {
    for (; count > 0; count--) e_write("\b \b", 3);
}

void forget_window() { Row.stale = true; }

void forget_row() {
    row_clear();
    forget_window();
    Row.used = editb.e_wsize;
    margin_shown() = 0;
}

void renew_row() {
    forget_window();
    Row.at = 0;
    ofirst_w() = -1;
    margin_shown() = ' ';
}

static void scroll_to(int col) {
    if (col >= win_first() && col < win_first() + editb.e_wsize) return;
    row_move(0);
    win_first() = std::max(col - editb.e_wsize / 2, 0);
}

static int needed_margin() {
    if (editb.e_peol < editb.e_wsize) return ' ';
    if (win_first() == 0) return '>';
    return editb.e_peol < win_first() + editb.e_wsize ? '<' : '*';
}

// The image of the whole line, for putstring.
static void build_image() {
    e_virt_to_phys(editb.e_inbuf, text_len(), editb.e_physbuf, editb.e_cur, 0);
    editb.e_peol = static_cast<int>(std::char_traits<genchar>::length(editb.e_physbuf)) - 1;
}

void refresh_now(int mode) {
    const bool behind = mode == MODE_INPUT && editb.e_cur > -1;
    Row.cut = behind ? editb.e_cur + 1 : -1;
    if (mode == MODE_TRANSLATE) {
        build_image();
        return;
    }
    refresh_owed = false;
    const int col = cursor_column(behind ? editb.e_cur + 1 : end_at(editb.e_cur));
    scroll_to(col);
    row_want_line(win_first());
    editb.e_peol = row_columns(win_first() + editb.e_wsize) - 1;

    const int k = row_first_difference();
    const bool written = k >= Row.used && k >= row_wanted();
    margin_new() = needed_margin();
    if (!written || editb.e_cur != ocur_virt() || margin_new() != margin_shown()) {
        row_write_from(k);
        row_mark(margin_new());
    }

    ocur_phys() = col;
    ocur_virt() = editb.e_cur;
    ofirst_w() = win_first();
    cursor(behind ? col + 1 : col);
    e_flush();
}

// Keys typed ahead are obeyed before the screen is brought up to date; one that ends the line or
// the input wants it right.
static bool keys_come_first() {
    if (editb.e_index == 0) return false;
    const int next = editb.e_lbuf[editb.e_index - 1];
    return next != kEscape && next != '\n' && next != '\r';
}

void refresh(int mode) {
    if (mode != MODE_TRANSLATE && keys_come_first()) {
        ocur_virt() = -1;
        refresh_owed = true;
        return;
    }
    refresh_now(mode);
}

void sync_cursor() {
    if (editb.e_cur == -1) return;
    if (ocur_virt() == -1) {
        refresh(MODE_CONTROL);
        return;
    }
    const int col = cursor_column(end_at(editb.e_cur));
    if (col < win_first() || col >= win_first() + editb.e_wsize) {
        forget_window();
        refresh(MODE_CONTROL);
        return;
    }
    cursor(col);
    e_flush();
    ocur_phys() = col;
    ocur_virt() = editb.e_cur;
    ochar() = static_cast<int>(char_at(editb.e_cur));
}

void show_line() {
    if (!end_blank) {
        refresh_now(view_mode);
        return;
    }
    text_take(--editb.e_eol + 1, 1);
    refresh_now(view_mode);
    (void)text_put(++editb.e_eol, U" ", 1);  // it was there before
}

void make_up() {
    if (refresh_owed) show_line();
}

}  // namespace vi
