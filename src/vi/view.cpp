// view.cpp: how the line makes way for program output and comes back. Output arrives only while a
// key is awaited, and make_up brings the row up to date before each wait.
#include <algorithm>

#include "edit/chars.h"
#include "edit/host.h"
#include "edit/prompt.h"
#include "vi_internal.h"

namespace vi {

// Characters of the line, without the blank that an operator may have put behind it.
static int line_length() { return editb.e_eol + 1 - (end_blank ? 1 : 0); }

// Works on what the row shows, not on the line.
static void step_off() {
    const int marked = margin_shown() != ' ' ? editb.e_wsize + 1 : 0;
    if (own_row) out_row_new();
    // Output that the text has covered shows again.
    genchar rest[kRowColumns];
    row_take_off(rest, out_row_rest(rest), std::max(Row.used, marked));
    margin_shown() = ' ';
}

// The text is about to cover it: the next refresh blanks it.
void take_rest() {
    row_take();
    genchar rest[kRowColumns];
    if (row_show_rest(0, rest, out_row_rest(rest)) != 0) margin_shown() = 0;
}

// Prompt and window, for the line that there is.
static void measure() {
    const bool was_full = line_full();
    const int kept = searching ? editb.e_ubuf->len : 0;
    own_row = false;
    e_new_prompt(kPromptSize);
    fit_prompt(std::max(line_length(), kept));
    // A prompt that has grown must not end the line.
    if (!was_full && line_full())
        editb.e_llimit = std::max(editb.e_eol, columns_of(editb.e_eol + 1) - 1) + 1;
}

static void come_back() {
    const bool was_alone = own_row;
    measure();
    if (own_row) {
        e_putchar('\n');
        out_row_new();
        pr_prompt();
    } else if (editb.e_crlf != 0 && (was_alone || editb.e_plen == kPromptSize - 2)) {
        // The row doesn't hold the prompt from its first column on, or holds more of it than is
        // captured.
        pr_prompt();
        forget_row();
    } else {
        (void)e_show_cut_prompt();
        take_rest();
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

static void resized() {
    measure();
    e_erase_row(true);
    if (editb.e_crlf != 0) pr_prompt();
    row_clear();
    renew_row();
    win_first() = 0;
    show_line();
}

static int text(char *dst) {
    if (searching) return bytes_from_units(dst, Limits.copy, editb.e_ubuf->unit, editb.e_ubuf->len);
    return bytes_from_units(dst, Limits.copy, editb.e_inbuf, line_length());
}

static bool within_line() { return editb.e_cur < editb.e_eol; }

const EditView view = {step_off, come_back, redraw, resized, text, within_line, make_up};

}  // namespace vi
