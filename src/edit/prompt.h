// prompt.h: the program's output as far as a line stands on it: the prompt, which is what the
// program printed last, and the row of its cursor. One follower of the output (follow.cpp) feeds
// both. Nothing here runs inside a signal catcher.
#pragma once

#include "morp_defs.h"

// Characters of program output kept for the prompt.
inline constexpr int kPrimeSize = 8192;
// Most columns of a row that are kept, at least those of the widest window and its prompt.
inline constexpr int kRowColumns = 1001;

// Chooses, for the whole run, what a row is taken to hold: plain characters, or, in extended mode,
// what terminals show of colours and characters of any width.
void rows_begin(bool extended);

// Takes `len` bytes of program output that are being shown, as they were read: mostly a packet.
void e_setup_prime(const char *data, int len);
// True when the output ended within what a terminal takes as one, a carriage return before a
// newline included; only within an escape sequence or a character.
bool out_row_in_piece();
bool out_row_in_sequence();

// True while the program has bracketed paste switched on (ESC [ ? 2004 h), as far as its output has
// been shown: the state to leave the terminal in wherever no editor reads the keys.
bool program_paste_mode();
// How often it has switched it, on, off or to what it was.
unsigned long program_paste_switches();

// Empties the prompt capture.
void e_reset_prime();
// The prompt captured so far, beside the one that was there when the capture was emptied last:
// compared as far as 127 characters from the end go. `none`: there is none now, and was none then.
enum class PromptNow { none, same, other };
PromptNow e_compare_prompt();
// Fills e_prompt, e_plen, e_crlf for a line behind the prompt and sets e_wsize; `prompt_size` is
// that of the buffer at e_prompt, which gets at most prompt_size - 2 characters. In extended mode
// e_prompt leads to a buffer of its own: the prompt with its colours, cut at its left to half of
// the window.
void e_new_prompt(int prompt_size);
// The columns of the terminal when it was called last.
int e_prompt_columns();
// Where that has left out a prompt's start, the row holds more than can be counted on: writes the
// prompt in place of all that stands there, the cursor behind it. True where it has.
bool e_show_cut_prompt();
// True where e_prompt was made to leave half of the window.
bool e_prompt_is_fitted();
// True where the program has left a colour on behind the prompt. e_prompt takes it back in front
// and at its end: the line is shown without.
bool e_prompt_leaves_colour();
// Erases the cursor's row, what the program has left there too, and with `below` all rows under it;
// the cursor is in the first column. Without escape sequences where the terminal has none, and then
// of the row alone.
void e_erase_row(bool below);
// Writes the captured prompt again after a carriage return, when it is printable.
void e_rewrite_prompt();
// Around rows of morp's own, each written with its newline, while the cursor stands behind the
// prompt and the line is not shown: they take the prompt's row, and it follows them. One that can't
// be written again stays above them.
void e_above_begin();
void e_above_end();

// 1 while the row still shows the text of an edit that a keyboard signal ended and the program has
// printed nothing since: the next edit starts with a newline and the prompt. Set by the
// editors' wait, cleared by e_setup_prime and by e_row_renewed.
extern int e_row_stale;
// The text of the row has been renewed: clears e_row_stale.
void e_row_renewed();

// Copies what the program has left on the row from its cursor on to `dst` (kRowColumns): a unit
// that prints for each column, 0 in the second one of a wide character. Returns the number of
// columns: 0 also where the row isn't known.
int out_row_rest(genchar *dst);
// The column of the program's cursor, -1 where the row isn't known.
int out_row_column();
// The program's cursor stands on a new, empty row.
void out_row_new();
// Somebody else has written on the row.
void out_row_forget();
