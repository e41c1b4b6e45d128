// prompt.cpp: the prompt is not known, it is what the program printed last. The capture holds the
// program's output since the last line end or escape, that byte included; in extended mode escape
// sequences belong to the prompt.
#include <cstring>

#include "edit.h"
#include "edit/decode.h"
#include "edit/edit_internal.h"
#include "edit/prompt.h"
#include "edit/rich_prompt.h"
#include "extended.h"
#include "history.h"

// State: filled by output, emptied when a line has been finished with a newline.
static char Prime_buf[kPrimeSize];
static char *Prime_ptr = Prime_buf;  // at the terminating NUL

// Kept when the capture overflows: the most recent third.
static constexpr std::size_t kPrimeKept = 2730;

// State: the end of the prompt that was there before.
static char Last_prompt[128];

bool Rich_rows = false;
int e_row_stale = 0;

// State: the prompt with its colours, a carriage return in front of it. It takes the place of the
// editor's own buffer, and stays until it is asked for anew.
static char Rich_text[1 + kRichPromptSize];
static bool Cut = false;       // it is the end of a longer one
static bool Coloured = false;  // the program has left a colour on
static int Columns = 0;        // of the terminal for which it was made
static_assert(kRichPromptSize == 2 * kPrimeSize);

void rows_begin(bool extended) { Rich_rows = extended; }

void edit_reset_prime() {
    e_reset_prime();
    e_row_stale = 0;
}

static bool restarts(char c) { return c == '\n' || c == '\r' || (c == kEscape && !Rich_rows); }

void capture_take(char c) {
    e_row_stale = 0;
    if (restarts(c)) Prime_ptr = Prime_buf;
    if (Prime_ptr == Prime_buf + kPrimeSize - 1) {
        memmove(Prime_buf, Prime_ptr - kPrimeKept, kPrimeKept);
        Prime_ptr = Prime_buf + kPrimeKept;
    }
    *Prime_ptr++ = c;
    *Prime_ptr = '\0';
}

static const char *prompt_start() {
    const char *start = Prime_buf;
    for (const char *p = Prime_buf; *p != '\0'; p++)
        if (*p == '\n' || *p == '\r') start = p + 1;
    return start;
}

// The prompt, or its last characters where it is longer than Last_prompt.
static const char *prompt_end() {
    constexpr int kMost = sizeof Last_prompt - 1;
    const char *start = prompt_start();
    return Prime_ptr - start > kMost ? Prime_ptr - kMost : start;
}

void e_reset_prime() {
    const char *end = prompt_end();
    memcpy(Last_prompt, end, strlen(end) + 1);
    Prime_ptr = Prime_buf;
    *Prime_ptr = '\0';
}

PromptNow e_compare_prompt() {
    const char *now = prompt_end();
    if (*now == '\0' && Last_prompt[0] == '\0') return PromptNow::none;
    return strcmp(now, Last_prompt) == 0 ? PromptNow::same : PromptNow::other;
}

void e_row_renewed() { e_row_stale = 0; }

static void new_rich_prompt() {
    editb.e_prompt = Rich_text;
    Rich_text[0] = '\r';
    const RichPrompt made = rich_prompt(Rich_text + 1, prompt_start(), editb.e_wsize / 2);
    if (!made.writable) editb.e_crlf = 0;
    const int known = made.writable ? -1 : out_row_column();
    editb.e_plen = known >= 0 ? known : made.columns;
    Cut = made.cut;
    Coloured = made.coloured;
}

void e_new_prompt(int prompt_size) {
    editb.e_wsize = e_window(editb.e_fd) - 2;
    editb.e_crlf = Prime_buf[0] != '\0' ? 1 : 0;
    Columns = e_columns();
    Cut = Coloured = false;
    if (Rich_rows) {
        new_rich_prompt();
        return;
    }
    const int most = prompt_size - 2;
    int len = 0;
    editb.e_prompt[0] = '\r';
    for (const char *p = prompt_start(); *p != '\0'; p++) {
        if (*p == kBell) continue;
        if (!is_printable(byte_of(*p))) editb.e_crlf = 0;
        if (len < most) editb.e_prompt[++len] = *p;
    }
    editb.e_prompt[len + 1] = '\0';
    editb.e_plen = len;
}

void e_setup(int fd, int prompt_size) {
    editb.e_fd = fd;
    editb.e_hismax = editb.e_hloff = editb.e_hismin = 0;
    if (fc_fix != nullptr) {
        editb.e_hismax = fc_fix->fixind;
        editb.e_hloff = fc_fix->fixline;
        const int oldest = fc_fix->fixind - fc_fix->fixmax;
        editb.e_hismin = oldest > 0 ? oldest : 0;
    }
    editb.e_hline = editb.e_hismax;
    decode_begin_line();
    e_new_prompt(prompt_size);
}

// Asks for the prompt, in `prompt` or where it is kept, without the line's own buffer.
static const char *look_at_prompt(char *prompt, int size) {
    char *const kept = editb.e_prompt;
    editb.e_prompt = prompt;
    e_new_prompt(size);
    const char *const made = editb.e_prompt;
    editb.e_prompt = kept;
    return made;
}

void e_rewrite_prompt() {
    char prompt[256];
    const char *const made = look_at_prompt(prompt, sizeof prompt);
    if (editb.e_crlf == 0) return;
    e_write(made, strlen(made));
    e_flush();
}

int e_prompt_columns() { return Columns; }

void e_erase_row(bool below) {
    out_row_forget();
    e_putchar('\r');
    if (Dumb_terminal == 0) {
        e_write(below ? "\033[J" : "\033[K", 3);
        return;
    }
    const int known = e_columns();
    for (int left = known > 0 ? known : e_window(editb.e_fd); left > 0; left--) e_putchar(' ');
    e_putchar('\r');
}

void e_above_begin() {
    if (e_view == nullptr) {
        char prompt[256];
        (void)look_at_prompt(prompt, sizeof prompt);
    }
    if (editb.e_crlf != 0)
        e_erase_row(false);
    else if (out_row_column() != 0)
        e_write("\n", 1);
}

void e_above_end() {
    if (editb.e_crlf != 0) {
        e_rewrite_prompt();
        out_row_forget();
    } else {
        e_reset_prime();
        out_row_new();
    }
}

bool e_prompt_leaves_colour() { return Coloured; }

bool e_prompt_is_fitted() { return Rich_rows && editb.e_crlf != 0; }

bool e_show_cut_prompt() {
    if (!Cut || editb.e_crlf == 0) return false;
    e_erase_row(false);
    e_write(editb.e_prompt, strlen(editb.e_prompt));
    return true;
}
