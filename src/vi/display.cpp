// display.cpp: the row that shows the line. The image (e_physbuf) is the line as characters of one
// column each, the window (e_window) the part of it that the screen shows behind the prompt, as
// last written, and in the column after it a marker tells on which sides the line goes on. Only
// printable characters, backspaces and the carriage return that begins the prompt are written.
#include <cstring>

#include "vi_internal.h"

namespace vi {

int columns_of(int count) {
    int col = 0;
    for (int i = 0; i < count && col < kMaxLine; i++) {
        const int c = char_at(i);
        if (is_printable(c))
            col++;
        else if (c == '\t')
            col = (col + 8) / 8 * 8;
        else
            col += 2;
    }
    return col;
}

// The last column of the character under the cursor: that of the image when the image was cut
// before it, 0 without such a character.
static int cursor_column() {
    const int cols = columns_of(editb.e_cur + 1);
    return cols > 0 ? cols - 1 : 0;
}

void pr_string(const char *s) {
    if (s != nullptr) e_write(s, strlen(s));
}

void pr_prompt() { pr_string(editb.e_prompt); }

void putstring(int col, int nchars) {
    const int image = static_cast<int>(strlen(editb.e_physbuf));
    for (int i = col; i < col + nchars; i++)
        e_putchar(i < image ? byte_of(editb.e_physbuf[i]) : ' ');
}

void cursor(int x) {
    const int delta = x - editb.e_pcur;
    if (delta > 0) {
        putstring(editb.e_pcur, delta);
    } else if (delta < 0) {
        const int from_row_start = editb.e_pcur - win_first() + editb.e_plen;
        if (editb.e_crlf != 0 && -delta > from_row_start / 2) {
            pr_prompt();
            putstring(win_first(), x - win_first());
        } else {
            for (int i = delta; i < 0; i++) e_putchar('\b');
        }
    }
    editb.e_pcur = x;
}

void clear_row() {
    const int known = e_columns();
    e_putchar('\r');
    for (int left = known > 0 ? known : e_window(editb.e_fd); left > 0; left--) e_putchar(' ');
    e_putchar('\r');
}

void rub_out(int count) {
    for (; count > 0; count--) e_write("\b \b", 3);
}

void forget_window() { editb.e_window[0] = '\0'; }

void forget_row() {
    forget_window();
    editb.e_pcur = win_first();
    win_last() = editb.e_wsize - 1;
    margin_shown() = 0;
}

void renew_row() {
    forget_window();
    editb.e_pcur = win_first();
    ofirst_w() = -1;
    margin_shown() = ' ';
}

static void build_image() {
    editb.e_inbuf[editb.e_eol + 1] = '\0';
    e_virt_to_phys(editb.e_inbuf, editb.e_physbuf, editb.e_cur, 0, 0);
    editb.e_peol = static_cast<int>(strlen(editb.e_physbuf)) - 1;
}

static void scroll_to(int col) {
    if (col >= win_first() && col < win_first() + editb.e_wsize) return;
    cursor(win_first());
    const int first = col - editb.e_wsize / 2;
    win_first() = first > 0 ? first : 0;
    editb.e_pcur = win_first();  // the same place on the screen
}

static int needed_margin() {
    if (editb.e_peol < editb.e_wsize) return ' ';
    if (win_first() == 0) return '>';
    return editb.e_peol < win_first() + editb.e_wsize ? '<' : '*';
}

// Writes the window from index `from` on and blanks what the old content held behind it.
static void write_window(int from) {
    const int first = win_first();
    int k = from;
    for (; k < editb.e_wsize && first + k <= editb.e_peol; k++)
        editb.e_window[k] = editb.e_physbuf[first + k];
    const int last = k - 1;
    for (; k <= win_last(); k++) editb.e_window[k] = ' ';
    cursor(first + from);
    for (int i = from; i < k; i++) e_putchar(byte_of(editb.e_window[i]));
    editb.e_pcur = first + k;
    win_last() = last;  // the blanks are no content
}

static void write_margin() {
    if (margin_new() == margin_shown()) return;
    for (; editb.e_pcur < win_first() + editb.e_wsize; editb.e_pcur++) e_putchar(' ');
    e_putchar(margin_new());
    editb.e_pcur++;
    margin_shown() = margin_new();
}

void refresh_now(int mode) {
    build_image();
    if (mode == MODE_TRANSLATE) return;
    refresh_owed = false;
    const int col = cursor_column();
    scroll_to(col);

    const int first = win_first();
    int k = 0;
    while (first + k <= editb.e_peol && k <= win_last() &&
           editb.e_window[k] == editb.e_physbuf[first + k])
        k++;
    const bool written = k > win_last() && (first + k > editb.e_peol || k >= editb.e_wsize);
    margin_new() = needed_margin();
    if (!written || editb.e_cur != ocur_virt() || margin_new() != margin_shown()) {
        write_window(k);
        write_margin();
    }

    ocur_phys() = col;
    ocur_virt() = editb.e_cur;
    ofirst_w() = first;
    cursor(mode == MODE_INPUT && editb.e_cur > -1 ? col + 1 : col);
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
    const int col = cursor_column();
    if (col < win_first() || col >= win_first() + editb.e_wsize) {
        forget_window();
        refresh(MODE_CONTROL);
        return;
    }
    cursor(col);
    e_flush();
    ocur_phys() = col;
    ocur_virt() = editb.e_cur;
    ochar() = char_at(editb.e_cur);
}

void show_line() {
    const int blank = end_blank ? 1 : 0;
    editb.e_eol -= blank;
    refresh_now(view_mode);
    editb.e_eol += blank;
    if (blank != 0) editb.e_inbuf[editb.e_eol] = ' ';
}

void make_up() {
    if (refresh_owed) show_line();
}

}  // namespace vi
