// read.cpp: vi_read. In extended mode all keys are the editor's. Else the terminal driver collects
// and echoes the first part of a line (alternative mode). A newline or the end-of-file key ends the
// line there; the escape key, or a quoted terminator, hands it to the editor: the terminal goes
// raw, and input mode and command mode take over. Keys typed ahead begin in raw mode at once. When
// a raw line is done the terminal stays raw: the main loop switches it.
#include <algorithm>
#include <cerrno>
#include <csetjmp>

#include "edit/chars.h"
#include "edit/prompt.h"
#include "vi.h"
#include "vi_internal.h"
#include "wait.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp vi 1.0";

namespace vi {

// Below this many columns a window behind the prompt is of no use.
static constexpr int kNarrowest = 10;
// Highest e_llimit: with the last character there, a backslash and the newline still fit.
static int highest_limit() { return Limits.capacity - 3; }

// What one line needs, empty at its start.
struct Buffers {
    char prompt[80];
    char Lsearch[kLineBuffer];
    genchar Physical[kMaxImage];
    TextCopy Ubuf;
    TextCopy ubuf;
};

// State: outlives the line.
static Buffers Line;
static int Globals[kGlobals];
static TextCopy Last_text;  // e_tmp
static bool Begun = false;  // the first call was made
int last_cmd = 0;
int repeat_set = 0;
int last_find = 0;
int direction = -1;
TextCopy yankbuf;

// State: of the running call.
int capacity = 0;
int view_mode = MODE_INPUT;
bool refresh_owed = false;
bool end_blank = false;
bool searching = false;
bool own_row = false;
bool after_escape = false;

// The line as the driver delivered it.
struct Cooked {
    int term_char;  // newline, escape or end-of-file character that ended it; 0: it had no part
    bool changed;   // the row doesn't show the line as it is
    bool again;     // that is so for a reason that makes it worth showing a complete line again
    int echoed;     // columns behind it that show keys typed ahead, -1 where that isn't known
};

// How the row is led back to the window: by the prompt, which begins with a carriage return.
static void set_home() { Row.home = {editb.e_prompt, editb.e_plen, editb.e_crlf != 0, false}; }

static void set_limits() {
    const int room = std::min(capacity, Limits.capacity - editb.e_plen);
    editb.e_llimit = std::clamp(room - 2, 0, highest_limit());
    editb.e_wsize -= editb.e_plen;
    row_set_width(editb.e_wsize);
    set_home();
}

void drop_prompt() {
    editb.e_wsize = e_window(editb.e_fd) - 2;
    editb.e_plen = 0;
    editb.e_prompt[1] = '\0';
    editb.e_crlf = 1;
    own_row = true;
    set_limits();
}

void fit_prompt(int text_len) {
    const int narrowest = e_prompt_is_fitted() ? 1 : kNarrowest;
    if (editb.e_wsize - editb.e_plen < narrowest || editb.e_plen + text_len > Limits.row)
        drop_prompt();
    else
        set_limits();
}

static void first_call() {
    if (Begun) return;
    Begun = true;
    last_cmd = 'i';
    editb.e_fchar = -1;
    editb.e_mode = 1;
    editb.e_repeat = 1;
}

static void begin(int fd, int nchar) {
    Line.prompt[0] = Line.Lsearch[0] = '\0';
    Line.Physical[0] = 0;
    Line.Ubuf.len = Line.ubuf.len = 0;  // longer than a line mostly is: not written to in vain
    text_begin(Limits.room + 1, Limits.room + 1);
    Row.start = 0;
    Row.cut = -1;
    editb.e_prompt = Line.prompt;
    editb.e_search = Line.Lsearch;
    editb.e_physbuf = Line.Physical;
    editb.e_Ubuf = &Line.Ubuf;
    editb.e_ubuf = &Line.ubuf;
    editb.e_tmp = &Last_text;
    editb.e_globals = Globals;
    capacity = std::min(nchar, Limits.capacity);
    view_mode = MODE_INPUT;
    prefix_len = -1;
    refresh_owed = end_blank = searching = own_row = after_escape = false;
    first_call();
    e_setup(fd, kPromptSize);
}

// Positions and display state for the line, as the driver has echoed it behind the prompt.
static void set_up() {
    editb.e_cur = editb.e_eol = editb.e_peol = text_len() - 1;
    editb.e_fcol = 0;
    editb.e_saved = 0;
    editb.e_ucol = kNothingSaved;
    win_first() = 0;
    margin_new() = margin_shown() = ' ';
    ocur_phys() = 0;
    ocur_virt() = kNoRefresh;
    ofirst_w() = 0;
    ochar() = 0;
    own_row = false;
    fit_prompt(0);
    row_show_echo(text_len());
}

// Makes the line of the `len` bytes read, without their terminator and the NULs, which no line can
// hold.
static void take_driven(char *line, int len, Cooked &cooked) {
    cooked = {kEscape, false, false, 0};
    if (len > 0) {
        const int last = line[len - 1] == '\r' ? '\n' : byte_of(line[len - 1]);
        if (last == '\n' || last == editb.e_eof) {
            cooked.term_char = last;
            len--;
        }
    }
    const int kept = static_cast<int>(std::remove(line, line + len, '\0') - line);
    if (kept != len) cooked.changed = cooked.again = true;
    genchar units[kKeyboardBuffer];
    (void)text_set(units, units_from_bytes(units, kKeyboardBuffer, line, kept));
}

// Takes the quoting ^V out, of which the driver has left some, and the carriage returns.
static void clean(Cooked &cooked) {
    for (int i = 0; i <= editb.e_eol; i++) {
        if (char_at(i) == '\r') (void)text_over(i, U"\n", 1);
        const int c = static_cast<int>(char_at(i));
        if (c == editb.e_erase || c == editb.e_kill || !unit_printable(char_at(i))) {
            cooked.changed = true;
            if (c < 128) cooked.again = true;
        }
        if (c != ctrl('V')) continue;
        if (i == editb.e_eol) {
            const genchar unit = static_cast<genchar>(cooked.term_char);
            (void)text_over(i, &unit, 1);
            return;
        }
        text_take(i, 1);
        editb.e_cur--;
        editb.e_eol--;
    }
}

static bool ends_in(int c) {
    return editb.e_eol >= 0 && static_cast<int>(char_at(editb.e_eol)) == c;
}

// Hands the line on as bytes. Returns their number.
static int hand_on(char *line) {
    return bytes_from_units(line, Limits.capacity, editb.e_inbuf, text_len());
}

static int with_newline(char *line) {
    const int len = bytes_from_units(line, Limits.capacity - 1, editb.e_inbuf, text_len());
    line[len] = '\n';
    e_reset_prime();
    return len + 1;
}

// Shows a complete line as it is. `pasted`: the driver has echoed others over it.
static void show_complete(bool pasted) {
    if (own_row || (pasted && e_row_stale != 0)) {
        e_putchar('\n');
        e_row_renewed();
    } else if (pasted) {
        clear_row();
    }
    refresh(MODE_TRANSLATE);
    pr_prompt();
    putstring(0, editb.e_peol + 1);
    e_flush();
}

// The driver's part was all of the line. What waits behind it in a paste is edited in raw mode.
static int deliver(int fd, char *line, const Cooked &cooked) {
    if (cooked.term_char == '\n') e_take_typed(fd);
    const bool pasted = editb.e_index > 0;
    const bool worth = editb.e_ttyspeed == 2 && editb.e_eol >= 0 && cooked.again;
    if (pasted || worth) show_complete(pasted);
    last_cmd = 'i';
    save_last();
    if (cooked.term_char != '\n') return hand_on(line);
    e_crlf();
    return with_newline(line);
}

// Takes the prompt for one that can be written again, or gives it up, where the row can't be put
// right otherwise.
static void fit_row(const Cooked &cooked) {
    if (editb.e_crlf != 0) return;
    if (cooked.changed || editb.e_eol >= editb.e_wsize || (cooked.echoed < 0 && editb.e_plen > 0))
        drop_prompt();
    else if (cooked.echoed < 0)
        editb.e_crlf = 1;  // nothing was printed since the last newline
    set_home();
}

// True when the driver's echo may stand right of the marker.
static bool echo_beyond_window(const Cooked &cooked) {
    const int shown = editb.e_plen + editb.e_wsize + 1;
    if (e_columns() <= shown) return false;
    constexpr int kTab = 7;  // columns that a tab may take more, from where the prompt ends
    const int end = editb.e_plen + columns_of(editb.e_eol + 1) + keyboard_waiting();
    return end + (cooked.changed ? kTab : 0) > shown || editb.e_plen == kPromptSize - 2;
}

// Columns of the driver's echo that don't belong on the row where it stands: what was typed behind
// an abandoned text, or keys that are to be obeyed behind a prompt that can't be written again.
static int echo_to_rub(const Cooked &cooked) {
    if (e_row_stale == 0) return editb.e_crlf == 0 ? cooked.echoed : 0;
    if (cooked.changed || cooked.echoed < 0) return 0;
    return columns_of(editb.e_eol + 1) + cooked.echoed;
}

// Shows the line on its row after the switch to raw mode.
static void show_first(const Cooked &cooked) {
    fit_row(cooked);
    const bool fresh = own_row || e_row_stale != 0;
    if (!own_row) rub_out(echo_to_rub(cooked));
    if (fresh) e_putchar('\n');
    e_row_renewed();
    if (editb.e_crlf == 0 && !fresh) {
        refresh(MODE_TRANSLATE);
        return;
    }
    if (!fresh && echo_beyond_window(cooked)) clear_row();
    if (editb.e_crlf != 0) pr_prompt();
    forget_row();
    const bool on_last = cooked.term_char == kEscape && editb.e_eol >= 0 && !ends_in(kEscape);
    refresh(on_last ? MODE_CONTROL : MODE_INPUT);
}

static int leave(int fd, int result) {
    e_view = nullptr;
    e_end_edit(fd);
    return result;
}

static int edit_raw(int fd, char *line, int mode) {
    // The frames that the jump crosses hold nothing to destroy.
    switch (setjmp(editb.e_env)) {  // NOLINT(cert-err52-cpp)
        case 0:
            break;
        case kEditEnd:
            return leave(fd, 0);
        default:
            return leave(fd, RESULT_BAD);
    }
    e_view = &view;
    VIgetline(mode);
    if (refresh_owed) refresh_now(MODE_INPUT);
    if (editb.e_addnl == 0) return leave(fd, hand_on(line));
    const int len = with_newline(line);
    e_crlf();
    return leave(fd, len);
}

// Result of a call in which e_read_cooked gave nothing: 0 when a signal key is the reason.
static int unread() { return progdone != 0 || errno == EAGAIN ? 0 : RESULT_BAD; }

// The line as the driver makes it, for a terminal that can't be switched.
static int read_plainly(int fd, char *line, int room) {
    const long n = e_read_cooked(fd, line, static_cast<std::size_t>(room));
    return n >= 0 ? static_cast<int>(n) : unread();
}

// Hands the keys held on as they are: the terminal can't be made raw to edit them.
static int deliver_keys(char *line, int room) {
    int len = 0;
    while (e_key_held() && len < room) line[len++] = static_cast<char>(e_getchar());
    return len;
}

// The row is as the program has left it, unless an abandoned text stands there.
static void show_begin() {
    const bool fresh = own_row || e_row_stale != 0;
    e_row_renewed();
    if (fresh) {
        e_putchar('\n');
        if (editb.e_crlf != 0) pr_prompt();
        row_clear();
    } else {
        (void)e_show_cut_prompt();
        take_rest();
    }
}

// The whole line, from its first key on.
static int edit_all(int fd, char *line) {
    if (e_setraw(fd) != 0) return read_plainly(fd, line, capacity);
    set_up();
    show_begin();
    return edit_raw(fd, line, MODE_APPEND);
}

static int edit_ahead(int fd, char *line) {
    if (e_setraw(fd) != 0) return deliver_keys(line, capacity);
    set_up();
    show_first({0, false, false, 0});
    return edit_raw(fd, line, MODE_APPEND);
}

// Goes on with the `len` bytes at `line` that the driver delivered.
static int edit_cooked(int fd, char *line, int len) {
    Cooked cooked;
    take_driven(line, len, cooked);
    set_up();
    clean(cooked);
    if (cooked.term_char != kEscape && !ends_in(cooked.term_char)) return deliver(fd, line, cooked);

    if (e_setraw(fd) != 0) return with_newline(line);
    // Where the row is written anew, the echo of keys behind the escape goes with it.
    if (editb.e_crlf == 0 || e_row_stale != 0) cooked.echoed = e_take_echoed();
    show_first(cooked);
    const bool input = ends_in(cooked.term_char);
    after_escape = !input;
    return edit_raw(fd, line, input ? MODE_APPEND : kEscape);
}

static bool ends_line(int c) { return c == '\r' || c == '\n' || c == editb.e_eof; }

}  // namespace vi

void vi_reset_for_test() {
    using namespace vi;
    Begun = false;
    last_cmd = repeat_set = last_find = 0;
    direction = -1;
    Globals[2] = 0;
    yankbuf.len = Last_text.len = 0;
}

int vi_read(int fd, unsigned char *shbuf, int nchar) {
    using namespace vi;
    char *const line = reinterpret_cast<char *>(shbuf);
    begin(fd, nchar);
    if (!e_driver_begins()) return edit_all(fd, line);
    if (e_wanted_mode() == kTtyRaw) return edit_ahead(fd, line);
    if (e_setalt(fd) != 0) return read_plainly(fd, line, capacity);
    // Keys that waited have kept the terminal raw.
    if (editb.e_index > 0 || editb.e_raw == kTtyRaw) return edit_ahead(fd, line);

    const long got = e_read_cooked(fd, line, static_cast<std::size_t>(capacity));
    if (got < 0) return unread();
    if (e_gone != 0) return 0;
    const int len = static_cast<int>(got);
    if (len > 0 && byte_of(line[0]) == editb.e_eof) return 0;
    // A piece of a long paste: the rest follows with the next read.
    if (len == capacity && !ends_line(byte_of(line[len - 1]))) return len;
    return edit_cooked(fd, line, len);
}
