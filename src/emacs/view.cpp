// view.cpp: how the line makes way for program output and comes back. Output arrives only while the
// editor waits, and make_up brings the row up to date before each wait.
#include <algorithm>

#include "edit/chars.h"
#include "edit/host.h"
#include "edit/prompt.h"
#include "emacs/find.h"
#include "emacs_internal.h"

namespace emacs {

// State of the row: 1 while the line stands on a row of its own, below a prompt that was given up.
static char own_row = 0;

void give_up_prompt() {
    own_row = 1;
    editb.e_prompt[0] = '\r';
    editb.e_prompt[1] = '\0';
    editb.e_plen = 0;
    editb.e_crlf = 1;
    prompt_excess = 0;
}

bool drop_unfit_prompt(int text_len) {
    constexpr int kNarrowest = 20;  // window behind a prompt of which a part was captured
    prompt_excess = editb.e_crlf == 0 ? std::max(out_row_column() - editb.e_plen, 0) : 0;
    const int width = editb.e_wsize - prompt_excess;
    const bool fits = editb.e_plen < width && (prompt_excess == 0 || width >= kNarrowest) &&
                      editb.e_plen <= Limits.prompt && editb.e_plen + text_len <= Limits.row;
    own_row = 0;
    if (!fits) give_up_prompt();
    return !fits;
}

// Works on what the row shows, not on the line.
static void step_off() {
    // A prompt that can't be written again is gone once the window has moved.
    const bool gone = offset != 0 && editb.e_crlf == 0;
    const int prompt = gone ? 0 : editb.e_plen;
    // What the program prints now starts an empty row; the prompt captured isn't on it.
    if (gone || own_row != 0) {
        e_reset_prime();
        out_row_new();
    }
    genchar rest[kRowColumns];
    const int len = out_row_rest(rest);
    const int room = editb.e_wsize - prompt;
    row_want_output(prompt, rest, len);
    write_differences();
    row_mark(room < len && rest[room] != 0 ? static_cast<int>(rest[room]) : ' ');
    row_write_tail(rest + room, len - room);
    row_move(prompt);
    row_leave();
}

// The row behind the cursor may hold output that the text now covers: it counts as shown, so that
// the next update blanks it.
static void take_rest() {
    genchar rest[kRowColumns];
    const int beyond = row_show_rest(editb.e_plen, rest, out_row_rest(rest));
    if (beyond != 0) overflow = beyond;
}

// The length of everything that has to fit behind the prompt: the line, also while it is kept
// aside, and what is shown in its place.
static int text_length() { return std::max({editb.e_eol, editb.e_cur, text_len()}); }

// Prompt and window, for the line that there is. Returns true when the prompt was given up.
static bool measure() {
    const bool was_full = editb.e_eol + 1 >= editb.e_llimit;
    const int text_len = text_length();
    e_new_prompt(kPromptSize);
    const bool given_up = drop_unfit_prompt(text_len);
    editb.e_llimit = line_limit();
    // A prompt that has grown must not end the line.
    if (!was_full) editb.e_llimit = std::max(editb.e_llimit, editb.e_eol + 2);
    return given_up;
}

static void come_back() {
    if (measure()) {
        e_putchar('\n');
        out_row_new();
    } else {
        (void)e_show_cut_prompt();
    }
    draw(FIRST);
    take_rest();
    draw(UPDATE);
}

static void redraw() {
    // The row may still hold what it showed, in another window position.
    blank_row();
    draw(REFRESH);
}

static void resized() {
    (void)measure();
    e_erase_row(true);
    draw(REFRESH);
}

static int text(char *dst) {
    const int len = kept.any ? kept.text.len : text_len();
    return bytes_from_units(dst, Limits.copy, kept.any ? kept.text.unit : editb.e_inbuf, len);
}

static bool within_line() { return editb.e_cur < editb.e_eol; }

static void make_up_all() {
    find_make_up();
    make_up();
}

const EditView view = {step_off, come_back, redraw, resized, text, within_line, make_up_all};

}  // namespace emacs
