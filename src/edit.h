// edit.h: the record of the line being edited, the terminal modes used while editing, keyboard
// input with read-ahead and push-back, editor output, prompt capture and the map from a line to the
// screen columns that show it. Both editors stand on it. Nothing here runs inside a signal catcher.
#pragma once

#include <csetjmp>
#include <cstddef>

#include "morp_defs.h"

// Keys the read-ahead stack holds: 80 of one read and what a command pushes back.
inline constexpr int kLookAhead = 84;
// Most keys taken in one read of the terminal.
inline constexpr int kReadAhead = 80;

// Values of `e_raw`.
inline constexpr int kTtyCooked = 0;
inline constexpr int kTtyRaw = 1;
inline constexpr int kTtyAlt = 2;

// Values with which `e_getchar` leaves through `e_env`. kEditEnd also stands for an edit that was
// taken away because the program left line input (see `e_taken`).
inline constexpr int kEditEnd = -2;
inline constexpr int kEditFailed = -4;

// Everything known about the line being edited; zero at start. Pointers lead into the frame of the
// running editor and are valid only during its call. An int index counts characters.
struct TextCopy;
struct edit {
    // The terminal and its keys. These stay from line to line.
    int e_kill;    // the user's line-kill, erase and end-of-file characters, 0 to 255,
    int e_erase;   //   kNoKey when the terminal has none;
    int e_eof;     //   taken whenever raw or alternative mode is entered
    int e_werase;  // the same for word erase, quote and reprint in vi style without the
    int e_lnext;   //   driver's part, which would obey them; kNoKey elsewhere
    int e_reprint;
    int e_raw;           // mode of the terminal: kTtyCooked, kTtyRaw, kTtyAlt
    int e_ttyspeed;      // 1 slow (600 baud or less), 2 fast, 0 before the first switch
    int e_fd;            // descriptor being edited
    std::jmp_buf e_env;  // where e_getchar goes when input ends (kEditEnd) or fails (kEditFailed)
    int e_lbuf[kLookAhead];  // read-ahead stack, the top at e_index - 1
    int e_index;             // keys held in e_lbuf
    char e_inmacro;          // vi saves nothing for undo while it is set, which nothing here does;
                             //   cleared at every terminal read

    // The line and its surroundings, the same in every style. e_setup begins them.
    genchar *e_inbuf;  // the line, kLineUnits; changed through edit/text.h only
    int e_llimit;      // bound on the line's end
    char *e_prompt;    // the prompt buffer: emacs 256 bytes, vi 80
    int e_plen;        // prompt length without its leading carriage return
    char e_crlf;       // 1: the prompt is printable and may be written again
    int e_wsize;       // width of the editing window, columns
    int e_hline;       // history command shown, and the line within it
    int e_hloff;
    int e_hismin;  // lowest command number in reach; number that this line will get
    int e_hismax;

    // The style's own: what they mean is the running editor's affair, and only its folder names
    // them.
    int e_cur;    // index of the character under the cursor
    int e_eol;    // emacs: one past the last character. vi: the last character, -1 when empty
    int e_fchar;  // emacs: the mark, an index in e_inbuf. vi: character of the last find, -1 none
    TextCopy *e_tmp;     // emacs: the newest kill. vi: last inserted text
    char *e_search;      // last search text: emacs 256, vi kLineBuffer
    int e_peol;          // vi: last column of the line's image, -1 when empty
    int e_mode;          // vi: count of the last text-modifying command
    int e_repeat;        // vi: count for the command being read
    int e_saved;         // vi: 1 once e_Ubuf holds the line
    int e_fcol;          // vi: first column that the insertion may erase back to
    int e_ucol;          // vi: cursor saved with e_ubuf, -2 while nothing is saved
    int e_addnl;         // vi: a newline is to be added to the returned line
    TextCopy *e_ubuf;    // vi: undo buffer
    TextCopy *e_Ubuf;    // vi: the line for undo-all
    genchar *e_physbuf;  // vi: image of a whole line of the driver's, kMaxImage
    int *e_globals;      // vi: nine state words
};
extern edit editb;
extern int opt_flag;  // editing style

// The editor's side of output that arrives while it waits for a key. An editor registers its view
// once its terminal is raw, its record is set up and e_env is armed, and unregisters it (null)
// before it returns; between the two, every call below may come from within e_getchar (only from
// there, and from complete_at), so nothing that an editor keeps across e_getchar may depend on the
// prompt's length or the row's image unless come_back corrects it.
struct EditView {
    // Takes the text off the screen, so that the row is as the program left it: the prompt, the
    // cursor right behind it. Where the window has moved and the prompt can't be written again: an
    // empty row, the cursor in its first column.
    void (*step_off)();
    // Called after step_off, when output was relayed: asks for the prompt anew (e_new_prompt) and
    // writes the text behind it, the cursor where it was. Where prompt and text together pass 255
    // characters, the prompt counts as not captured and the line takes a row of its own.
    void (*come_back)();
    // Writes prompt and line again from the row's first column (a carriage return first), as ^L
    // does after its newline: somebody else has written on the screen meanwhile.
    void (*redraw)();
    // The terminal has another width, and may have wrapped or cut the row: measures window and
    // prompt anew, erases the row of the cursor and all below it, and writes prompt and line there.
    void (*resized)();
    // Stores the bytes of the line as it stands, without its newline, at `dst` (kLineBuffer) and
    // returns their number. While a search text or the version is shown, that is the line being
    // kept behind it.
    int (*text)(char *dst);
    // True while the cursor stands in front of the line's end: keys are then taken in bursts.
    bool (*within_line)();
    // Called before a wait for a key: draws what was put off while keys were held.
    void (*make_up)();
};
extern const EditView *e_view;

// The line of an edit that ended because the program left line input: e_taken_len bytes, -1
// when the last edit ended in any other way.
extern char e_taken[kLineBuffer];
extern int e_taken_len;

// 1 when the last kread returned 0 because nothing was there to read any more: no end of input.
extern int e_nothing;
// 1 when it returned 0 because the terminal is gone.
extern int e_gone;
// How often e_getchar has returned in it, the end-of-input key included.
extern int e_keys_taken;

// Puts the terminal `fd` into raw mode: every key is delivered as typed, signals stay on. Returns 0
// when it is raw afterwards, -1 when its settings can't be read or set or echo is off.
int e_setraw(int fd);
// Puts the terminal into the alternative mode: the driver collects the line and ends it at escape
// (not delivered), carriage return, or the end-of-file key (delivered). Keys that waited while it
// was raw move to the read-ahead stack, and the terminal then stays raw. Returns 0, or -1 as
// e_setraw.
int e_setalt(int fd);
// Takes text that the driver holds in alternative mode into the read-ahead stack: the next line
// starts with it in raw mode.
void e_take_typed(int fd);
// To be called after the switch from alternative to raw mode, with no key held: takes the keys that
// waited into the read-ahead stack. Returns the columns that the driver's echo of them takes behind
// the line; -1 where the echo has moved the cursor in another way, or can't be told.
int e_take_echoed();
// Columns of the terminal, 0 where they aren't known.
int e_columns();
// Gives the terminal its saved settings back. Ends the process with status 2 when that fails while
// the terminal is there: a closed descriptor, one that is no terminal, and a hang-up are passed
// over.
void e_setcooked(int fd);
// To be called by an editor at the end of its line: takes the keys still unread into the read-ahead
// stack where the style wants it. The terminal stays raw; the main loop switches it, so that no key
// falls into a cooked moment.
void e_end_edit(int fd);
// Usable columns: COLUMNS - 1 within 20 to 160, or 79 when COLUMNS is not set. In extended mode the
// terminal's columns less one, at most 1,000, and 79 for a terminal narrower than 6; COLUMNS, from
// 5 on, where the size is unknown. `fd` is not used.
int e_window(int fd);
// Puts the `n` keys as read (at most what the read-ahead stack has room for; overwritten) behind
// those held. In the vi style a plain NUL is dropped: no line can hold it.
void e_hold_keys(unsigned char *keys, int n);
// The byte `c` (0 to 255) as read from the terminal, translated while bytes last that the driver
// had collected before the mode was switched: among them a NUL marks an escape key.
int e_unmark(int c);

// Prepares editb for a new line: descriptor, history bounds, window width, prompt. `prompt_size` is
// that of the buffer at e_prompt; at most prompt_size - 2 prompt characters are stored.
void e_setup(int fd, int prompt_size);

// Next key, 0 to 255, or a value pushed back; a carriage return is delivered as newline. Waits for
// the keyboard, relaying program output meanwhile. Leaves through e_env when input ends or fails.
int e_getchar();
// The same for a byte as it was read, or a value pushed back: kNoKey when none comes within
// `timeout_ns`.
int e_getbyte(long timeout_ns);
// The same for a key that the one before, a ^V, has quoted: in the vi style, where a NUL ends the
// input elsewhere, it is delivered as 0.
int e_getquoted();
// True where a line begins in the driver's hands, in alternative mode.
bool e_driver_begins();
// True when e_getchar will deliver a key without a wait. A NUL behind a ^V that has not quoted it
// is dropped, with what follows.
bool e_key_held();
// To be asked in the midst of long work: serves signals and output as a wait for a key does, and
// leaves through e_env as e_getchar does. True when e_getchar will deliver a key without a wait.
bool e_key_comes();
// Pushes `c` back: the next e_getchar returns it. A push onto a full stack is dropped; kLookAhead
// leaves room for every push of the editors.
void e_ungetchar(int c);
// Queues one character for the terminal; an underscore goes as blank, backspace, underscore.
void e_putchar(int c);
// Queues `len` bytes as they are.
void e_write(const char *data, std::size_t len);
// Writes what is queued and waits until the terminal has sent it.
void e_flush();
// Writes what is queued, then the bell.
void e_ringbell();
// Where the line can't be given to the program as it stands, rings, stores the index of the unit
// that is in the way at `at`, and returns true. To be asked before the line is ended.
bool e_refused(int *at);
// Newline, then e_flush.
void e_crlf();
// Maps the `len` units at `virt` to the characters that show them, into `phys` (kMaxImage) from
// column `poff` on, with a NUL behind them: at most 258 columns and the rest of the last character.
// Returns the column of the one at index `cur`: in the vi style its last column, else its first;
// `poff` when `cur` is not in the line.
int e_virt_to_phys(const genchar *virt, int len, genchar *phys, int cur, int poff);

// The driver's part of a vi line: reads what the alternative mode has collected into `buf` (`len`
// bytes). Returns its length, 0 for an escape key on an empty line; -1 with EAGAIN when nothing is
// there any more (a signal key emptied the queue), with EINTR when progdone is set.
long e_read_cooked(int fd, void *buf, std::size_t len);
// The mode that an edit needs in the present state: kTtyRaw while an editor works or keys are held,
// else what the style begins a line in.
int e_wanted_mode();
// That mode is really in force on the user's terminal afterwards. Returns 0, -1 when it can't be
// set.
int e_assert_mode(int fd);
// While they are taken, the keys that stop and start the terminal's output are keys in raw mode.
void e_take_stop_keys(bool taken);
// To be called when editing is no longer in force and the terminal goes raw for pass-through: what
// the driver had collected stays marked (see e_unmark).
void e_leave_editing(int fd);
void edit_reset_for_test();
