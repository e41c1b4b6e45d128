// loop.cpp: emacs_read, the key table and the state of the line read. A line is edited from
// draw(FIRST) until a command asks for its end; e_getchar may end it at any wait by a jump to
// editb.e_env. All state stands in the namespace, so nothing is lost in the jump.
#include <poll.h>
#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <span>

#include "edit/chars.h"
#include "edit/decode.h"
#include "edit/prompt.h"
#include "emacs.h"
#include "emacs/find.h"
#include "emacs/kills.h"
#include "emacs/undo.h"
#include "emacs_internal.h"
#include "wait.h"

namespace emacs {

int capacity = 0;
int adjust = -1;
char backslash = 0;
int turn = 1;
KeptLine kept = {false, 0, {}};

histloc location = {0, 0};
int CntrlO = 0;
TERMINAL terminal = CRT;

// The command of ESC and `key` on a key of its own.
template <int key>
static After as_escape(Command &command) {
    adjust = escape(key, command.oadjust);
    return After::next_key;
}

// The user's erase, kill and end-of-file characters come before this table.
struct Binding {
    int key;
    After (*run)(Command &command);
};
static constexpr Binding kBindings[] = {
    {CODE_KILL, kill_line},          // delete the line
    {CODE_ERASE, erase},             // delete the character before the cursor
    {CODE_EOF, end_of_file},         // end of input, on an empty line
    {ctrl('@'), set_mark},           // set the mark
    {ctrl('A'), line_start},         // to the start of the line
    {ctrl('B'), leftarrow},          // character back
    {ctrl('C'), upper_case},         // change the character to upper case
    {ctrl('D'), delete_},            // delete the character under the cursor
    {ctrl('E'), line_end},           // to the end of the line
    {ctrl('F'), rightarrow},         // character forward
    {ctrl('J'), end_line},           // enter the line
    {ctrl('K'), kill_to_end},        // delete to the end of the line, or to a column
    {ctrl('L'), refresh},            // draw the line again
    {ctrl('N'), downarrow},          // newer line
    {ctrl('O'), end_line_get_next},  // enter the line, fetch the one after it
    {ctrl('P'), uparrow},            // older line
    {ctrl('R'), search_history},     // search the history
    {ctrl('T'), transpose},          // exchange two characters
    {ctrl('U'), multiply_count},     // multiply the count by four
    {ctrl('V'), show_version},       // show the version
    {ctrl('W'), delete_region},      // delete from the mark to the cursor
    {ctrl('X'), control_x},          // twice: exchange cursor and mark
    {ctrl('Y'), yank},               // put in what was deleted last
    {ctrl(']'), find_character},     // to the next c, around the end
    {kKeyUp, uparrow},               // older line
    {kKeyDown, downarrow},           // newer line
    {kKeyRight, rightarrow},         // character forward
    {kKeyLeft, leftarrow},           // character back
};
// Before that table in extended mode.
static constexpr Binding kExtendedBindings[] = {
    {kKeyHome, line_start},                // to the start of the line
    {kKeyEnd, line_end},                   // to its end
    {kCtrl | kKeyLeft, as_escape<'b'>},    // to the start of a word
    {kAlt | kKeyLeft, as_escape<'b'>},     // to the start of a word
    {kCtrl | kKeyRight, as_escape<'f'>},   // to the end of a word
    {kAlt | kKeyRight, as_escape<'f'>},    // to the end of a word
    {kKeyDelete, delete_ahead},            // deletes the character under the cursor
    {kCtrl | kKeyDelete, as_escape<'d'>},  // deletes to the end of a word
    {ctrl('I'), complete_word},            // completes the word before the cursor
    {ctrl('P'), older},                    // the command before
    {kKeyUp, older},                       // the command before
    {ctrl('N'), newer},                    // the command behind
    {kKeyDown, newer},                     // the command behind
    {kKeyPageUp, older_match},             // the one before that begins as the line does
    {kKeyPageDown, newer_match},           // the one behind that begins so
    {ctrl('_'), undo},                     // takes the last change back
    {CODE_ERASE, erase_character},         // deletes the character before the cursor
    {ctrl('D'), delete_character},         // deletes the character under the cursor
    {ctrl('K'), kill_to_end_or_column},    // deletes to the end of the line, or to a column
    {ctrl('W'), kill_region_or_word},      // without a mark deletes the word before the cursor
    {kAlt | 'p', keep_region},             // copies from the mark to the cursor
    {kAlt | 'y', yank_before},        // what was deleted before, in place of what ^Y has put in
    {ctrl('X'), control_x_or_undo},   // ^X ^X, and ^X ^U for the same
    {kAlt | '.', last_word},          // the last word of the command before
    {kAlt | 'u', as_escape<'c'>},     // changes the word to upper case
    {ctrl('G'), drop_pending},        // drops a count and the mark
    {kPasted | ctrl('J'), end_line},  // a line end in the clipboard ends the line
    {ctrl('R'), find_while_typed},    // searches the history while the text is typed
};
// State: chosen once a run.
static std::span<const Binding> first_bindings;
static bool full_line_ends = true;  // else a key that finds no room rings

void keep_line() {
    kept.any = true;
    kept.cur = editb.e_cur;
    text_copy(kept.text);
}

void restore_line() {
    (void)text_set(kept.text.unit, kept.text.len);  // it was there before
    editb.e_cur = kept.cur;
    kept.any = false;
}

int line_limit() { return full_line_ends ? capacity - 2 * editb.e_plen : kLineUnits + 2; }

int yank_limit() {
    return full_line_ends ? std::min(editb.e_llimit, Limits.text - editb.e_plen) : 2 * kLineUnits;
}

bool put_units(int at, const genchar *units, int n) { return replace_units(at, 0, units, n); }

bool replace_units(int at, int taken, const genchar *units, int n) {
    const bool fits = text_replace(at, taken, units, n);
    if (!fits) e_ringbell();
    editb.e_eol = text_len();
    return fits;
}

void take_units(int at, int n) {
    text_take(at, n);
    editb.e_eol = text_len();
}

// A backslash makes the next key text when that is the user's erase or kill character or doesn't
// print. A NUL ends the line wherever one is held, so none can stand in it. Returns true when `c`
// has taken the place of the backslash, or rung.
static bool quote(int c) {
    if (backslash == 0) return false;
    backslash = 0;
    if (c == '\0') {
        e_ringbell();
        return true;
    }
    const genchar unit = static_cast<genchar>(c & ~kPasted);
    const bool quoted = c == editb.e_erase || c == editb.e_kill ||
                        (!unit_printable(unit) && c != '\n' && c != '\r');
    if (!quoted) return false;
    if ((c & kPasted) != 0) undo_typing(decode_pastes());
    (void)text_over(editb.e_cur - 1, &unit, 1);
    // Not APPEND: its echo of a printing character would leave the backslash on the screen.
    draw(UPDATE);
    return true;
}

int code_of(int c) {
    if (c == editb.e_kill) return CODE_KILL;
    if (c == editb.e_erase) return CODE_ERASE;
    if (c == editb.e_eof && editb.e_eol == 0) return CODE_EOF;
    return c;
}

static After escape_command(Command &command) {
    adjust = escape(command.c & ~kAlt, command.oadjust);
    return After::next_key;
}

static const Binding *find_binding(std::span<const Binding> bindings, int key) {
    const auto found = std::find_if(bindings.begin(), bindings.end(),
                                    [key](const Binding &binding) { return binding.key == key; });
    return found == bindings.end() ? nullptr : &*found;
}

// A key of the decoder's that is no character, and stands for nothing here.
static bool strange_key(int c) { return c >= kKeyBase && (c & kPasted) == 0; }

static const Binding *binding_of(int code) {
    const Binding *binding = find_binding(first_bindings, code);
    return binding != nullptr ? binding : find_binding(kBindings, code);
}

bool is_command(int code) {
    return binding_of(code) != nullptr || ((code & kAlt) != 0 && !strange_key(code & ~kAlt));
}

// What was typed, or a change, may have joined characters around the cursor: it goes behind them.
static int between_clusters(int at) {
    const int start = cluster_start(editb.e_inbuf, text_len(), at);
    return start == at ? at : text_ahead(start, 1);
}

static After run(Command &command) {
    const Binding *binding = binding_of(command.c);
    if (binding == nullptr && !strange_key(command.c)) return insert(command);

    undo_command();
    command.i = between_clusters(command.i);
    if (command.i != editb.e_cur) {
        editb.e_cur = command.i;
        draw(UPDATE);
    }
    if (binding != nullptr) return binding->run(command);
    if ((command.c & kAlt) != 0 && !strange_key(command.c & ~kAlt)) return escape_command(command);
    e_ringbell();
    return After::next_key;
}

int next_key() {
    if (backslash != 0) return e_gettext();
    return code_of(kEscape) == kEscape ? e_getkey() : e_gettyped();
}

// Reads and obeys keys until the line is done.
static After edit_keys() {
    for (;;) {
        const int key = next_key();
        if (quote(key)) continue;
        Command command = {code_of(key), editb.e_cur, std::max(adjust, 0), adjust};
        if (adjust < 0) command.count = 1;
        adjust = -1;
        turn++;
        const After after = run(command);
        if (adjust >= 0) turn--;
        switch (after) {
            case After::next_key:
                break;
            case After::update:
                editb.e_cur = between_clusters(command.i);
                draw(UPDATE);
                break;
            case After::drawline:
                editb.e_eol = text_len();
                editb.e_cur = editb.e_eol;
                draw(UPDATE);
                break;
            default:
                return after;
        }
    }
}

// Puts prompt and line on their row. The row may still show an edit that a keyboard signal ended,
// or hold a prompt that leaves no room.
static void begin_line() {
    const bool own_row = drop_unfit_prompt(0);
    if (own_row || e_row_stale != 0) {
        e_putchar('\n');
        if (editb.e_crlf == 1) putstring(editb.e_prompt + 1);
    } else {
        (void)e_show_cut_prompt();
    }
    e_row_renewed();

    editb.e_llimit = line_limit();
    editb.e_cur = editb.e_eol = editb.e_fchar = 0;
    draw(FIRST);
    adjust = -1;
    backslash = 0;
    kept.any = false;
    turn += 2;  // nothing follows a command of another line
    undo_line();
    begin_marks();
    begin_walk();
    fetch_next_line();
}

// Leaves the edit; the terminal stays raw for the main loop.
static int leave(int fd, int result) {
    find_abandon();
    e_view = nullptr;
    e_end_edit(fd);
    return result;
}

// Hands the line on as bytes; `whole`: with its newline.
static int deliver(int fd, char *line, bool whole) {
    e_flush();
    int len = bytes_from_units(line, Limits.capacity - 1, editb.e_inbuf, text_len());
    if (whole) line[len++] = '\n';
    return leave(fd, len);
}

// The line as the driver makes it, for a terminal that can't be made raw.
static int read_plainly(int fd, char *line, int room) {
    while (progdone == 0) {
        const long n = e_read_cooked(fd, line, static_cast<std::size_t>(room));
        if (n >= 0) return static_cast<int>(n);
        if (errno != EAGAIN && errno != EINTR) return -1;
        // What the main loop saw is gone: a signal key empties the terminal's queue.
        pollfd keyboard = {keyboard_fd(), POLLIN, 0};
        (void)wait_ready(&keyboard, 1, kNoTimeout);  // the read tells what it was
    }
    return 0;
}

}  // namespace emacs

void emacs_begin(bool extended) {
    using namespace emacs;
    first_bindings = {};
    if (extended) first_bindings = kExtendedBindings;
    full_line_ends = !extended;
    escape_begin(extended);
    kills_begin(extended);
    recall_begin(extended);
    undo_begin(extended);
}

void emacs_reset_for_test() {
    emacs::location = {0, 0};
    emacs::CntrlO = 0;
    emacs::terminal = emacs::CRT;
    emacs::prevdirection = 1;
    emacs::string[0] = '\0';
    emacs::adjust = -1;
    emacs::backslash = 0;
    emacs::kills_reset_for_test();
    emacs::kept.any = false;
}

int emacs_read(int fd, char *line, int scend) {
    using namespace emacs;
    char prompt[kPromptSize];
    editb.e_prompt = prompt;
    editb.e_search = string;
    text_begin(Limits.room, Limits.room);
    kills_line();
    capacity = std::min(scend, Limits.capacity);

    if (e_setraw(fd) != 0) {
        (void)std::fflush(stderr);
        return read_plainly(fd, line, capacity);
    }
    e_setup(fd, kPromptSize);
    // The frames that the jump crosses hold nothing to destroy.
    switch (setjmp(editb.e_env)) {  // NOLINT(cert-err52-cpp)
        case 0:
            break;
        case kEditEnd:
            if (e_taken_len >= 0) give_fetched_back();
            return leave(fd, 0);
        default:
            return leave(fd, -1);
    }
    e_view = &view;
    begin_line();
    const After after = edit_keys();
    if (after != After::end_of_input) return deliver(fd, line, after == After::finish);
    e_flush();
    return leave(fd, 0);
}
