// vi_internal.h: what the files of the vi editor share. A line is that of edit/text.h. Its
// first part may come from the terminal driver (read.cpp); then input mode (input.cpp)
// and command mode (command.cpp) take turns until a newline. Keys are waited for in e_getkey and
// its relatives only: there program output may take the line off the screen and bring it back
// (view.cpp), and there the edit may end by a jump to editb.e_env. What is kept across a wait
// stands in editb, in the state below, or in frames that hold nothing to destroy.
//
// Positions are indices of the line; -1 is an empty line, or a place before the first character.
// Columns count from the first character of the line, also where the window has moved.
#pragma once

#include "edit.h"
#include "edit/row.h"
#include "edit/text.h"
#include "extended.h"
#include "morp_defs.h"

namespace vi {

// Results and modes.
inline constexpr int RESULT_GOOD = 0;
inline constexpr int RESULT_BAD = -1;
inline constexpr int MODE_APPEND = -10;     // typed characters go in behind the cursor
inline constexpr int MODE_CONTROL = -20;    // display: the cursor on its character
inline constexpr int RESULT_ENTER = -25;    // the line is accepted
inline constexpr int MODE_INPUT = -30;      // display: the cursor behind its character
inline constexpr int MODE_INSERT = -35;     // input mode with the cursor already in place
inline constexpr int MODE_REPLACE = -40;    // typed characters overwrite
inline constexpr int MODE_SEARCH = -45;     // a search text is typed
inline constexpr int MODE_TRANSLATE = -50;  // display: build the image, write nothing

// Value of ocur_virt while nothing is known of the last refresh; -1 says the same.
inline constexpr int kNoRefresh = 256;
// Value of e_ucol while nothing is saved for undo.
inline constexpr int kNothingSaved = -2;
// Size that e_setup is given for the prompt buffer.
inline constexpr int kPromptSize = 78;
inline constexpr int kGlobals = 9;

// The state words behind editb.e_globals; valid during a call of vi_read. What the row shows is
// known to edit/row.h: two of the words are idle.
inline int &win_first() { return editb.e_globals[0]; }    // first column in the window
inline int &last_motion() { return editb.e_globals[2]; }  // motion of the last c, d, y; for `.`
inline int &margin_new() { return editb.e_globals[3]; }   // marker the line needs: ' ' '<' '>' '*'
inline int &margin_shown() { return Row.marker; }         // marker on the screen, 0 not known
// Cursor column, cursor index and win_first when the row was last brought up to date, and the
// character that the cursor was last put on. A refresh maps and compares the line from its start,
// and what is overwritten at once is judged by the character in the line, so nothing depends on the
// first, the third and the last: they are for a trace.
inline int &ocur_phys() { return editb.e_globals[5]; }
inline int &ocur_virt() { return editb.e_globals[6]; }
inline int &ofirst_w() { return editb.e_globals[7]; }
inline int &ochar() { return editb.e_globals[8]; }

// State that outlives the line (read.cpp).
extern int last_cmd;      // last successful command of textmod
extern int repeat_set;    // not 0: a count was typed for the current command
extern int last_find;     // last of f F t T, 0 none
extern int direction;     // of the last / (-1, older) or ? (1, newer)
extern TextCopy yankbuf;  // text last deleted or yanked

// State of the running call (read.cpp).
extern int capacity;       // bytes of the caller's buffer that may be used
extern int view_mode;      // MODE_CONTROL or MODE_INPUT: where the cursor is while a key is awaited
extern bool refresh_owed;  // a refresh was put off because keys were waiting
extern bool end_blank;     // a blank stands behind the line, counted in e_eol (delete.cpp)
extern bool searching;     // the line is a search text, the edited one is in e_ubuf
extern bool own_row;       // the line stands on a row of its own, the prompt left alone
extern bool after_escape;  // the escape key that ended the driver's part was the last key
extern bool fetched;       // input mode has fetched the line, and nothing has changed it since
extern int prefix_len;     // units that walk_older_alike looks for, -1: what is before the cursor

inline genchar char_at(int i) { return editb.e_inbuf[i]; }
// Units of the line, without the blank behind it.
inline int line_units() { return editb.e_eol + 1 - (end_blank ? 1 : 0); }

// read.cpp
// Gives up the prompt where it leaves no room: a window under 10 columns, or prompt and `text_len`
// characters above 255. Sets e_wsize (that e_setup has made) and e_llimit.
void fit_prompt(int text_len);
// The line takes a row of its own and has no prompt. Sets e_wsize and e_llimit.
void drop_prompt();

// input.cpp Reads keys in input mode, from `mode` (MODE_APPEND, MODE_SEARCH, or escape to begin
// with commands) on, until the line is done.
void VIgetline(int mode);
// Puts `c` into the line behind the cursor and the cursor on it; MODE_REPLACE overwrites the next
// character. A full line stays as it is.
void append(int c, int mode);
// The same without the limit of the line: as long as the newline still fits in the buffer. In
// extended mode what doesn't fit rings.
void insert(int c);
// Bytes that can still be put, with room left for the blank behind the line.
inline int line_room() { return text_room() - 1; }
// Whether the `n` units at `units` can be put as a whole, where that matters.
bool fits(const genchar *units, int n);
// Rings, but once only for all keys of a paste.
void ring_for_key();
// Reads a count of which `c` is the first digit, with `next`, multiplies it into e_repeat and
// returns the key after.
int getcount(int c, int (*next)());
// Whether the line, or the columns that show it, have reached e_llimit, where that ends it.
bool line_full();

// walk.cpp: through the history, with the cursor as `mode`, MODE_CONTROL or MODE_INPUT, wants it.
// To be called before e_hline changes: leaving the edited line keeps it.
void walk_keep(int mode);
// Brings the edited line back; `shown_saved`: the line it replaces is saved for undo already.
void walk_back(bool shown_saved, int mode);
// Shows command e_hline.
void walk_show(int mode);
// e_repeat commands up or down. They ring where there are no more.
void walk_older(int mode);
void walk_newer(int mode);
// Whether `command` can be shown: in extended mode one that is longer than a line is out of reach.
bool recallable(int command);
// To the next command that begins with the line's first prefix_len units; the cursor stays.
void walk_older_alike(int mode);
void walk_newer_alike(int mode);

// command.cpp Obeys commands until the line is accepted (RESULT_ENTER) or input goes on
// (MODE_APPEND, MODE_INSERT, MODE_REPLACE).
int cntlmode();
// The command that the key of a terminal stands for; any other key is returned as it is.
int command_of(int key);
// Leaves the row for the next one, with the prompt on it.
void next_row();
// Reads a key that belongs to a command already begun, as e_gettyped; kKeyNothing for a pasted one,
// which has rung.
int command_argument();

// textmod.cpp Carries out `c` if it is a command that changes or yanks text; `mode` is 0, or `c`
// when it is being repeated. RESULT_GOOD, RESULT_BAD when it is none or can't be done, or an input
// mode.
int textmod(int c, int mode);
// Overwrites the cluster under the cursor; with `increment` 1 the cursor moves on.
void replace(int c, int increment);
// Moves the cursor to the last unit of the cluster it is on, behind which text goes in.
void cursor_behind();

// motion.cpp Moves the cursor by the motion key `motion`, e_repeat times. 0; -1 when it is no
// motion or can't be made (the cursor stays).
int mvcursor(int motion);
// The start of the cluster that holds the unit `i`, and one past the cluster that begins at `i`.
// Outside of the line, and for the blank behind it, each index is one.
int start_at(int i);
int end_at(int i);

// words.cpp: over `nwords` words; an upper-case motion letter takes everything but blanks for a
// word.
void forward(int nwords, int cmd);
void backword(int nwords, int cmd);
void endword(int nwords, int cmd);
bool blank_at(int i);
// The start of the small word before index `at`, not before `first`; that of the next one behind.
int word_before(int at, int first);
int word_after(int at);

// delete.cpp Takes `nchars` characters from the cursor on: `mode` 'c' deletes them, 'y' copies them
// to yankbuf, any other does both. The cursor goes before the span. Rings before e_fcol.
void delete_(int nchars, int mode);
// Deletes the line; RESULT_GOOD saves it for undo first.
void del_line(int mode);
// delete_ from the cursor over the motion; RESULT_BAD as `mode` deletes without saving for undo. -1
// when nothing was done.
int delmotion(int motion, int mode);

// undo.cpp
void save_v();
void restore_v();
// Keeps what was inserted since e_fcol in e_tmp.
void save_last();
// Puts the `len` units at `text` in place of the line, as far as they fit, the cursor on index
// `cur` as far as there is such a unit.
void set_line(const genchar *text, int len, int cur);
inline void set_line(const TextCopy &text, int cur) { set_line(text.unit, text.len, cur); }

// display.cpp
void refresh(int mode);
// Refreshes at once, whatever keys are waiting.
void refresh_now(int mode);
void sync_cursor();
// Moves the terminal's cursor to column `x`.
void cursor(int x);
// Writes that part of the image that refresh(MODE_TRANSLATE) has made.
void putstring(int col, int nchars);
void pr_prompt();
void pr_string(const char *s);
// Blanks the terminal's row; the cursor is in its first column.
void clear_row();
// Blanks the `count` columns before the cursor, which goes there.
void rub_out(int count);
// Columns that the first `count` characters of the line take, as far as the image goes.
int columns_of(int count);
// Makes the next refresh write the window anew.
void forget_window();
// The same for a row whose content and marker are not known.
void forget_row();
// The same for a fresh row, the cursor behind the prompt.
void renew_row();
// Makes up for a refresh that was put off while keys were held.
void make_up();
// Shows the line as it is while a key is awaited: without the blank that an operator has put behind
// it, the cursor as view_mode says.
void show_line();

// search.cpp
// Searches the history; `mode` is one of / ? n N. 0 when e_hline is the command found, -1 when none
// was, -2 when the search was abandoned.
int search(int mode);

// view.cpp: the program's output on the row behind the cursor counts as shown.
void take_rest();

extern const EditView view;

}  // namespace vi
