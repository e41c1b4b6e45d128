// view.cpp: how the line makes way for program output and comes back. Output arrives only while a
// key is awaited, and make_up brings the row up to date before each wait.
#include <algorithm>
#include <cstring>

#include "edit/host.h"
#include "vi_internal.h"

namespace vi {

// Characters of the line, without the blank that an operator may have put behind it.
static int line_length() { return editb.e_eol + 1 - (end_blank ? 1 : 0); }

static void go_left(int count) {
    for (; count > 0; count--) e_putchar('\b');
}

// Works on what the row shows, not on the line.
static void step_off() {
    const int at = editb.e_pcur - win_first();
    const int marked = margin_shown() != ' ' ? editb.e_wsize + 1 : 0;
    if (own_row) e_host->row_new();
    // Output that the text has covered shows again.
    char rest[kRowColumns];
    const int rest_len = std::min(e_host->row_rest(rest), editb.e_wsize + 1);
    const int used = std::max({win_last() + 1, marked, at, rest_len});
    go_left(at);
    for (int i = 0; i < used; i++) e_putchar(i < rest_len ? byte_of(rest[i]) : ' ');
    go_left(used);
    editb.e_pcur = win_first();
    win_last() = -1;
    forget_window();
    margin_shown() = ' ';
}

// The row behind the cursor may hold output that the text now covers: it counts as shown, so that
// the next refresh blanks it.
static void take_rest_into_window() {
    char rest[kRowColumns];
    const int len = e_host->row_rest(rest);
    const int shown = std::min(len, editb.e_wsize);
    memcpy(editb.e_window, rest, static_cast<std::size_t>(shown));
    win_last() = shown - 1;
    if (len > editb.e_wsize) margin_shown() = 0;
}

static void come_back() {
    const bool was_full = line_full();
    const bool was_alone = own_row;
    const int kept = searching ? static_cast<int>(strlen(editb.e_ubuf)) : 0;
    own_row = false;
    e_new_prompt(kPromptSize);
    fit_prompt(std::max(line_length(), kept));
    // A prompt that has grown must not end the line.
    if (!was_full && line_full())
        editb.e_llimit = std::max(editb.e_eol, columns_of(editb.e_eol + 1) - 1) + 1;

    if (own_row) {
        e_putchar('\n');
        e_host->row_new();
        pr_prompt();
    } else if (editb.e_crlf != 0 && (was_alone || editb.e_plen == kPromptSize - 2)) {
        // The row doesn't hold the prompt from its first column on, or holds more of it than is
        // captured.
        pr_prompt();
        forget_row();
    } else {
        take_rest_into_window();
    }
    show_line();
}

static void redraw() {
    if (editb.e_crlf != 0)
        pr_prompt();
    else
        e_putchar('\r');
    renew_row();
    show_line();
}

static int text(genchar *dst) {
    const int len = searching ? static_cast<int>(strlen(editb.e_ubuf)) : line_length();
    memcpy(dst, searching ? editb.e_ubuf : editb.e_inbuf, static_cast<std::size_t>(len));
    dst[len] = '\0';
    return len;
}

static bool within_line() { return editb.e_cur < editb.e_eol; }

const EditView view = {step_off, come_back, redraw, text, within_line, make_up};

}  // namespace vi
