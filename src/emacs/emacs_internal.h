// emacs_internal.h: what the files of the emacs-like editor share: the state of the line read, the
// display, the commands.
//
// The line is that of edit/text.h; every position (e_cur, e_eol, the mark e_fchar) counts from its
// start. The prompt is the display's business alone. Text and prompt together stay below
// Limits.joint - 1: e_llimit takes the prompt off twice, once for the room that it takes on the
// row and once for what the text has less for it.
//
// Program output may arrive in any wait for a key and bring another prompt (see view.cpp), so no
// column is held in a local across e_getchar.
#pragma once

#include <type_traits>

#include "edit.h"
#include "edit/row.h"
#include "edit/text.h"
#include "extended.h"
#include "history.h"
#include "morp_defs.h"

namespace emacs {

// Codes of the user's own characters, out of the way of every key.
inline constexpr int CODE_EOF = -2;
inline constexpr int CODE_ERASE = -3;
inline constexpr int CODE_KILL = -5;

inline constexpr int kPromptSize = 256;  // bytes of the prompt buffer
inline constexpr int kSearchSize = 256;  // bytes of the search text

// Reasons to bring the row up to date.
enum DRAWTYPE {
    FIRST = 0,    // a new line: the prompt is on the row, the cursor behind it
    REFRESH = 1,  // the cursor is on an empty row: draw everything
    APPEND = 2,   // one character was added before the cursor
    UPDATE = 3,   // any other change
    FINAL = 4,    // the line is done: as UPDATE, also while keys are pending
};

// A printing terminal keeps a killed line; the next one starts on a new row.
enum TERMINAL { CRT = 0, PAPER = 1 };

// What the loop does when a command returns.
enum class After {
    next_key,      // nothing: the command has drawn what it changed
    update,        // put the cursor at Command::i and update the row
    drawline,      // measure the new text, put the cursor at its end and update the row
    finish,        // hand the line back, its newline added
    full,          // hand the line back as it is, without a newline
    end_of_input,  // hand nothing back
};

// One command as the loop found it.
struct Command {
    int c;        // the key, or a code above
    int i;        // the cursor as the key arrived; where After::update puts it
    int count;    // the pending count, 1 when none
    int oadjust;  // the pending count, -1 when none
};
static_assert(std::is_trivially_destructible_v<Command>);  // e_getchar leaves by a jump

// State of the line read; reset at its start.
extern int capacity;    // bytes of the buffer that may be used, at most Limits.capacity
extern int adjust;      // count for the next command, -1 none
extern char backslash;  // 1 while the character just inserted is a backslash
// Counts what is typed: commands, a count in front being part of its command, and characters. One
// turn further a command follows another directly. Never reset.
extern int turn;
// The line behind a search text or the version, from `keep_line` to `restore_line`. The text counts
// from its own start, so a new prompt doesn't touch it.
struct KeptLine {
    bool any;
    int cur;  // cursor within it
    TextCopy text;
};
extern KeptLine kept;

// State that outlives the line read.
extern histloc location;  // where the last history move led; behind ^O, see CntrlO
extern int CntrlO;        // 1: ^O has finished the line at `location`; once that is recorded: the
                          //   next line starts as the one at `location`
extern TERMINAL terminal;
extern int prevdirection;         // of the last search: -1 older, 1 newer
extern char string[kSearchSize];  // last search text

// The bound on the line's end behind the prompt that it has now; one that no line reaches where a
// full line isn't handed on.
int line_limit();
// The same where a kill is put in.
int yank_limit();
void keep_line();
void restore_line();
// Change the line, e_eol with it. Where the units don't fit it rings, and nothing goes in.
bool put_units(int at, const genchar *units, int n);
bool replace_units(int at, int taken, const genchar *units, int n);
void take_units(int at, int n);
// Applies a count of `value` times `factor` plus `add`, none negative; stops at kMaxCount.
constexpr int grow_count(int value, int factor, int add) {
    return value > (kMaxCount - add) / factor ? kMaxCount : value * factor + add;
}

// The screen row (display.cpp).
extern int offset;     // physical column shown in window column 0
extern int &overflow;  // marker shown in column e_wsize; 0 unknown
extern char scvalid;   // 1: the row shows the line; 0: an update was put off
extern bool &cr_ok;    // a carriage return leads to window column 0
// Columns by which a prompt that can't be written again reaches further than e_plen says: its
// colours were captured in part only. The window is narrower by so much while it shows the prompt.
extern int prompt_excess;
void draw(DRAWTYPE option);
// Shows the `n` units at `units`, which have to last, in place of the prompt from the next draw on;
// the prompt again with 0.
void show_lead(const genchar *units, int n);
// Blanks the row, the cursor in its first column.
void blank_row();
// Brings the window to what is wanted, column by column.
void write_differences();
// Makes up for an update that was put off while keys were pending.
void make_up();
// Writes a NUL-terminated string.
void putstring(const char *s);

// The view that output arriving in a wait needs (view.cpp).
extern const EditView view;
// Measures the prompt that e_new_prompt has made, the program's cursor behind it, and gives it up
// where it leaves the text no room; the caller then starts a row of its own. `text_len` is the
// length of the text that has to fit behind it. Returns true when the prompt was given up.
bool drop_unfit_prompt(int text_len);
// The line stands on a row of its own from now on, without the prompt.
void give_up_prompt();

// Commands of the key table: moves and changes (keys.cpp).
After line_start(Command &command);
After line_end(Command &command);
After leftarrow(Command &command);
After rightarrow(Command &command);
After upper_case(Command &command);
After find_character(Command &command);
After delete_ahead(Command &command);
After transpose(Command &command);
After insert(Command &command);
After complete_word(Command &command);
After undo(Command &command);
After control_x_or_undo(Command &command);
After multiply_count(Command &command);
After refresh(Command &command);
After show_version(Command &command);
After end_line(Command &command);
After end_line_get_next(Command &command);
After end_of_file(Command &command);
// Kills and the mark (kill.cpp).
void begin_marks();
void mark_at(int at);
After set_mark(Command &command);
After kill_line(Command &command);
After kill_to_end(Command &command);
After erase(Command &command);
After delete_(Command &command);
After delete_region(Command &command);
After control_x(Command &command);
After yank(Command &command);
// Those of extended mode.
After erase_character(Command &command);
After delete_character(Command &command);
After kill_to_end_or_column(Command &command);
After kill_region_or_word(Command &command);
After keep_region(Command &command);
After yank_before(Command &command);
After drop_pending(Command &command);
// The history (recall.cpp).
void recall_begin(bool extended);
After uparrow(Command &command);
After downarrow(Command &command);
After older(Command &command);
After newer(Command &command);
After older_match(Command &command);
After newer_match(Command &command);
After last_word(Command &command);
After search_history(Command &command);
// Forgets the line that was being edited.
void begin_walk();
// To be called before the place in the history changes: the line being edited, where it is shown,
// comes back with its cursor when a walk ends there.
void keep_newest();
// Copies the line at (e_hline, e_hloff), cut to the room behind the prompt, into `copy`; rings when
// it had to be cut. False, and nothing is copied, without a history.
bool copy_history_line(TextCopy &copy);
// Puts it in place of the line.
void recall_line();
// Whether the line at `place` can be shown whole.
bool recallable(histloc place);
// Starts the line with the successor of the one that ^O finished, when that was asked for.
void fetch_next_line();
// The edit was taken away: a fetched line as it came is nobody's typing, and is fetched again.
void give_fetched_back();

// Carries out the command typed as ESC and the key `ch`; `count` is the pending count, -1 none.
// Returns the count for the command after it, -1 none (escape.cpp).
int escape(int ch, int count);
// Chooses the commands behind ESC, once a run.
void escape_begin(bool extended);
// The user's own character that the key `c` is, or the key; whether that is a command (loop.cpp).
int code_of(int c);
bool is_command(int code);
// The next key of a command; an escape key of the user's own is one of its own (loop.cpp).
int next_key();
// Lets the user type a text in place of the line and puts the history line that holds it there, or
// the old line when there is none. `direction` 0 searches newer commands, above 0 older ones
// (search.cpp).
void search(int direction);

}  // namespace emacs
