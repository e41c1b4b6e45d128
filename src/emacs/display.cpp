// display.cpp: the row that shows the line. An image holds what the row shows; draw builds the
// image that it should show and writes only what differs.
//
// A line wider than the window is shown from `offset` on, with a marker in the column right of the
// window. The window starts at column 0, behind the prompt, or further right. A prompt that can't
// be written again is overwritten once the window has moved; until then a carriage return would
// lead the editor into columns that it doesn't know, so only backspaces go left.
#include <cstring>

#include "emacs_internal.h"

namespace emacs {

char *screen = nullptr;
char *cursor = nullptr;
int offset = 0;
char overflow = ' ';
char scvalid = 0;
int cr_ok = 0;
int prompt_excess = 0;

void putstring(const char *s) {
    for (; *s != '\0'; s++) e_putchar(byte_of(*s));
}

void setcursor(int new_col, int c) {
    int old_col = static_cast<int>(cursor - screen);
    if (old_col > new_col) {
        if (cr_ok == 1 && 2 * new_col <= old_col) {
            e_putchar('\r');
            old_col = 0;
        } else {
            for (; old_col > new_col; old_col--) e_putchar('\b');
        }
    }
    for (; old_col < new_col; old_col++) e_putchar(byte_of(screen[old_col]));
    if (c != 0) {
        e_putchar(c);
        new_col++;
    }
    cursor = screen + new_col;
}

static void set_width(int excess) { editb.e_wsize = e_window(editb.e_fd) - 2 - excess; }

static void clear_image() {
    static_assert(kScreenSize >= 158 + 2);  // the widest window, the marker's column, the cursor's
    std::memset(screen, ' ', static_cast<std::size_t>(editb.e_wsize));
    screen[editb.e_wsize] = '\0';
    cursor = screen;
}

// A new row: with the prompt, the cursor behind it, or empty.
static void start_row(DRAWTYPE option) {
    set_width(prompt_excess);
    clear_image();
    overflow = ' ';
    offset = 0;
    cr_ok = editb.e_crlf == 1 ? 1 : 0;
    if (option == FIRST) {
        scvalid = 1;
        std::memcpy(screen, editb.e_prompt + 1, static_cast<std::size_t>(editb.e_plen));
        cursor = screen + editb.e_plen;
    }
}

// The quick way for a character typed at the end of the line. Returns false when it isn't open.
static bool echo_typed() {
    if (scvalid == 0 || editb.e_inbuf[editb.e_cur] != '\0' || cursor >= screen + editb.e_wsize - 1)
        return false;
    const int c = byte_of(editb.e_inbuf[editb.e_cur - 1]);
    if (!is_printable(c)) return false;
    e_putchar(c);
    *cursor++ = static_cast<char>(c);
    return true;
}

// Builds the image of the whole line, kMaxImage bytes; returns the cursor's column in it.
static int build_image(char *nscreen) {
    std::memcpy(nscreen, editb.e_prompt + 1, static_cast<std::size_t>(editb.e_plen));
    const int column = e_virt_to_phys(editb.e_inbuf, nscreen, editb.e_cur, 0, editb.e_plen);
    // A character that the image no longer holds gives the first column, as does none.
    const bool behind = column == editb.e_plen && editb.e_cur != 0;
    if (behind || editb.e_inbuf[editb.e_cur] == '\0') return static_cast<int>(std::strlen(nscreen));
    return column;
}

// Moves the window so that it shows column `p`.
static void scroll_to(int p) {
    if (p > offset && p < offset + editb.e_wsize) return;
    // The row is taken over: nothing may stay behind the marker.
    set_width(0);
    offset = p - editb.e_wsize / 2;
    if (offset < editb.e_plen) offset = editb.e_crlf == 1 && p < editb.e_wsize ? 0 : editb.e_plen;
    if (offset >= editb.e_plen && cr_ok == 0) {
        clear_image();
        e_putchar('\r');
        overflow = 0;  // whatever stands in the marker's column
        cr_ok = 1;
    }
}

static void write_differences(const char *nscreen, int len) {
    for (int k = 0; k < editb.e_wsize; k++) {
        const char c = offset + k < len ? nscreen[offset + k] : ' ';
        if (c == screen[k]) continue;
        setcursor(k, byte_of(c));
        screen[k] = c;
    }
}

static char marker(int len) {
    const bool hidden_left = offset > editb.e_plen;
    if (len <= offset + editb.e_wsize) return hidden_left ? '<' : ' ';
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
    char nscreen[kMaxImage];
    const int p = build_image(nscreen);
    const int len = static_cast<int>(std::strlen(nscreen));
    scroll_to(p);
    write_differences(nscreen, len);
    const char longline = marker(len);
    if (longline != overflow) {
        setcursor(editb.e_wsize, byte_of(longline));
        overflow = longline;
    }
    setcursor(p - offset, 0);
    scvalid = 1;
}

void make_up() {
    if (scvalid == 0) draw(UPDATE);
}

}  // namespace emacs
