// row.h: the row of the screen that shows the line. A window on the line's image is made of cells;
// the row knows what the screen shows, where the terminal's cursor stands, and how to get from one
// to the other. It writes into the output queue only. What is written, and when, are the editors'
// two policies.
//
// Columns count from the window's first one, but those of the line's image, which count from its
// start: in the emacs styles the image begins with the prompt, in vi style with the text. Right of
// the window stands the marker. Only what moves, erases and marks here touches the screen.
#pragma once

#include <cstdint>

#include "morp_defs.h"

// The widest window.
inline constexpr int kWidestWindow = 1000;

// One column of the window, or the first of the several that a cluster takes.
struct Cell {
    genchar unit;        // a blank where there is nothing
    std::uint16_t rest;  // where the cluster's other units are kept, and how many there are
    std::uint8_t count;
    std::uint8_t columns;  // 0: a column that the cell before takes
    std::uint8_t colour;   // the one of the prompt's colour sequences that is in force, 0 none
    bool safe;             // see Shown
};

// How a row is led back to the window's first column.
struct RowHome {
    const char *bytes;  // a carriage return, and what stands in front of the window
    int columns;        // that the latter takes
    bool known;         // false: it can't be written; only backspaces lead to the left
    bool half;          // a way home that is as long as the way back is taken
};

// State of the row; an editor begins it with each line.
struct RowState {
    RowHome home;
    const genchar *lead;  // text in place of the prompt, `lead_len` units; 0: the prompt
    int lead_len;
    int width;   // of the window, columns
    int start;   // column of the image at which the text begins, behind a prompt in the window
    int cut;     // index at which no cluster joins what stands before and behind; -1 none
    int at;      // column of the terminal's cursor: 0 to width, one more behind the marker
    int used;    // columns that may show something; those from there on are blank
    int marker;  // character right of the window, 0 unknown
    bool stale;  // what the window shows is of no use
};
extern RowState Row;

// The image of the line.
// The column at which the unit `index` begins; that of the end for text_len(). In byte mode the
// image ends behind the character that reaches column kMaxLine.
int row_column(int index);
// Columns of the whole image, or as many as reach beyond column `enough`.
int row_columns(int enough);

// What the window shall show: the image from column `first` on; prompt and rest of the program's.
void row_want_line(int first);
// Columns of the text in place of the prompt.
int row_lead_columns();
void row_want_output(int prompt_columns, const genchar *rest, int len);
// Columns that this takes in the window.
int row_wanted();

// The window is `columns` wide from now on; what it shows is kept, blanks behind it.
void row_set_width(int columns);
// Nothing is shown: blanks, the cursor in the first column.
void row_clear();
// The prompt is shown from the first column on, the cursor behind it.
void row_show_prompt();
// The program's `rest` is shown from column `from` on. Returns what of it stands in the marker's
// column, 0 for nothing.
int row_show_rest(int from, const genchar *rest, int len);
// The first `n` units of the line are shown as the terminal's driver has echoed them.
void row_show_echo(int n);
// The editor takes the row over, without the colour that the program has left on; the program goes
// on at the cursor, in that colour.
void row_take();
void row_leave();
// Plain unit `u` at the cursor, which stays (`step` 0) or moves on (1): overwrites one plain cell.
void row_overwrite(genchar u, int step);

// Moves the cursor to `column`, to the right over what is shown.
void row_move(int column);
// Moves it over the cell on which it stands.
void row_step();
// Puts the program's `rest` in place of what is shown, of which `used` columns are in use, and
// leaves the cursor in front of it: by backspaces, where these can be trusted.
void row_take_off(const genchar *rest, int len, int used);
// Whether one column is up to date, and bringing it so, the cursor behind it.
bool row_same(int column);
void row_update(int column);
// The first column at which wanted and shown differ, as far as both go.
int row_first_difference();
// Writes all that is wanted from `column` on and erases what is behind it.
void row_write_from(int column);
// True where single columns can't be brought up to date, since a terminal may take other widths for
// what is, or was, there from `column` on: all behind has to be written.
bool row_unsafe_from(int column);
// Puts what the program has left from the marker's column on, `tail`, there again where what was
// written may have erased it.
void row_write_tail(const genchar *tail, int len);
// Puts marker `c` right of the window unless it stands there.
void row_mark(int c);
