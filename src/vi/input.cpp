// input.cpp: input mode, and the way between it and command mode.
#include <algorithm>

#include "edit/chars.h"
#include "edit/complete.h"
#include "edit/decode.h"
#include "vi_internal.h"

namespace vi {

bool fetched = false;

// State: the paste for which the bell has rung, 0 none.
static int paste_rung = 0;

// State: the cursor was moved, and what is typed now is an insertion of its own.
static bool moved = false;

// What follows a key.
enum class After { refresh, next_key, commands, done };

// Judged by the line itself: the image may be out of date.
bool line_full() {
    if (!Limits.ends) return false;
    return editb.e_eol >= editb.e_llimit || columns_of(editb.e_eol + 1) - 1 >= editb.e_llimit;
}

bool fits(const genchar *units, int n) {
    return Limits.ends || bytes_of_units(units, n) <= line_room();
}

void ring_for_key() {
    const int paste = decode_in_paste() ? decode_pastes() : 0;
    if (paste == 0 || paste != paste_rung) e_ringbell();
    paste_rung = paste;
}

void insert(int c) {
    if (Limits.ends && editb.e_eol + 1 >= Limits.text) return;
    const genchar unit = static_cast<genchar>(c & ~kPasted);
    if (bytes_of_units(&unit, 1) > line_room() || !text_put(editb.e_cur + 1, &unit, 1)) {
        ring_for_key();
        return;
    }
    editb.e_eol++;
    editb.e_cur++;
}

void append(int c, int mode) {
    if (line_full()) return;
    if (mode != MODE_REPLACE || editb.e_cur == editb.e_eol) {
        insert(c);
        return;
    }
    const genchar unit = static_cast<genchar>(c & ~kPasted);
    (void)text_over(++editb.e_cur, &unit, 1);
}

int getcount(int c, int (*next)()) {
    repeat_set++;
    int count = 0;
    for (; is_digit(c); c = next()) count = std::min(count * 10 + (c - '0'), kMaxCount);
    editb.e_repeat = std::min(editb.e_repeat * std::max(count, 1), kMaxCount);
    return c;
}

// Whether `unit` makes one cluster with what was typed before it over the line.
static bool joins_typed(genchar unit) {
    const int at = editb.e_cur;
    if (at <= editb.e_fcol) return false;
    const int start = cluster_start(editb.e_inbuf, at, at - 1);
    genchar joined[kMostJoined + 1];
    std::copy_n(editb.e_inbuf + start, at - start, joined);
    joined[at - start] = unit;
    return cluster_end(joined, at - start + 1, 0) == at - start + 1;
}

static After overwrite(int c, int &mode) {
    if (joins_typed(static_cast<genchar>(c))) {
        editb.e_cur--;
        append(c, MODE_APPEND);
        editb.e_cur++;
        return After::refresh;
    }
    if (end_at(editb.e_cur) <= editb.e_eol) {
        replace(c, 1);
        return After::next_key;
    }
    delete_(end_at(editb.e_cur) - editb.e_cur, RESULT_BAD);
    mode = MODE_APPEND;
    append(c, mode);
    return After::refresh;
}

static After text_key(int c, int &mode) {
    if (!e_is_text(c)) {
        e_ringbell();
        return After::next_key;
    }
    c &= ~kPasted;
    if (mode == MODE_REPLACE) return overwrite(c, mode);
    append(c, mode);
    return After::refresh;
}

// Text is overwritten by a TAB as by any other key, and a search text holds one.
static After tab_key(int &mode) {
    if (mode != MODE_APPEND) return text_key('\t', mode);
    const int at = editb.e_cur + 1;
    const Completion done = complete_at(at, line_room());
    if (done.tab == Tab::text) return text_key('\t', mode);
    if (done.tab == Tab::done) return After::next_key;
    const int typed = at - done.from;
    (void)text_over(done.from, done.unit, typed);  // where letters change case
    for (int i = typed; i < done.n; i++) insert(static_cast<int>(done.unit[i]));
    return After::refresh;
}

static After finish(int mode) {
    if (mode != MODE_SEARCH) save_last();
    return After::done;
}

static After end_of_file(int mode) {
    if (editb.e_cur != -1) return After::next_key;
    editb.e_addnl = 0;
    return finish(mode);
}

// Takes the cluster typed last, what stands behind the cursor left out.
static void take_last() {
    const int last = editb.e_cur;
    if (last >= 0) editb.e_cur = cluster_start(editb.e_inbuf, last + 1, last);
    if (last >= editb.e_fcol) editb.e_cur = std::max(editb.e_cur, editb.e_fcol);
    delete_(last - editb.e_cur + 1, RESULT_BAD);
}

// A backslash under the cursor gives way to the erase or kill character that would have acted.
static bool quoted(int c) {
    if (editb.e_cur < 0 || char_at(editb.e_cur) != '\\') return false;
    delete_(1, RESULT_BAD);
    append(c, MODE_APPEND);
    return true;
}

static After erase(int c, int mode) {
    if (mode == MODE_REPLACE) {
        if (editb.e_cur > editb.e_fcol)
            editb.e_cur = std::max(start_at(editb.e_cur - 1), editb.e_fcol);
        else
            e_ringbell();
        return After::refresh;
    }
    if (quoted(editb.e_erase == kNoKey ? c : editb.e_erase)) return After::refresh;
    const bool prefix = mode == MODE_SEARCH && editb.e_cur == 0;
    if (prefix) editb.e_fcol = 0;
    take_last();
    return prefix ? After::done : After::refresh;
}

static After kill(int mode) {
    if (quoted(editb.e_kill)) return After::refresh;
    if (mode != MODE_SEARCH) {
        del_line(RESULT_GOOD);
    } else if (editb.e_eol > 0) {
        editb.e_cur = 1;
        delmotion('$', RESULT_BAD);
    }
    return After::refresh;
}

static After erase_word() {
    const int last = editb.e_cur;
    const int start = start_at(last);
    if (start > editb.e_fcol && blank_at(start - 1)) {
        take_last();
    } else {
        editb.e_cur = start;
        backword(1, 'b');
        delete_(last - editb.e_cur + 1, RESULT_BAD);
    }
    return After::refresh;
}

// ---- Keys of the terminal. Text goes in at the index `at`, behind the cursor.

static int first_place() { return searching ? 1 : 0; }

static int left_of(int at) { return at > first_place() ? start_at(at - 1) : -1; }
static int right_of(int at) { return at <= editb.e_eol ? end_at(at) : -1; }
static int word_left_of(int at) { return at > first_place() ? word_before(at, first_place()) : -1; }
static int word_right_of(int at) { return at <= editb.e_eol ? word_after(at) : -1; }
static int line_start(int) { return first_place(); }
static int line_end(int) { return editb.e_eol + 1; }

struct Move {
    int key;
    int (*to)(int at);  // -1: there is no such place
};
static constexpr Move kMoves[] = {
    {kKeyLeft, left_of},                 // a character to the left
    {kKeyRight, right_of},               // a character to the right
    {kCtrl | kKeyLeft, word_left_of},    // to the start of the word
    {kAlt | kKeyLeft, word_left_of},     // the same
    {kCtrl | kKeyRight, word_right_of},  // to the start of the next word
    {kAlt | kKeyRight, word_right_of},   // the same
    {kKeyHome, line_start},              // to the start of the line
    {kKeyEnd, line_end},                 // behind its end
};

struct Walk {
    int key;
    void (*run)(int mode);
};
static constexpr Walk kWalks[] = {
    {kKeyUp, walk_older},              // the older command
    {kKeyDown, walk_newer},            // the newer one, or the edited line
    {kKeyPageUp, walk_older_alike},    // the older one that begins with what is before the cursor
    {kKeyPageDown, walk_newer_alike},  // the newer one
};

// What was typed is complete, and may join what stands behind it: the cursor goes behind that.
static int end_typing(int &mode) {
    int at = editb.e_cur + 1;
    if (mode == MODE_REPLACE) {
        at = std::max(at - 1, 0);
        mode = MODE_APPEND;
    }
    editb.e_cur = at - 1;
    if (mode != MODE_SEARCH) save_last();
    return start_at(at) < at ? end_at(start_at(at)) : at;
}

// Typing goes on at index `at`, and erases no further back.
static void go_on_at(int at) {
    editb.e_cur = at - 1;
    if (searching) return;
    editb.e_fcol = at;
    last_cmd = 'i';
    editb.e_mode = 1;
    moved = true;
}

// What a key that only rings leaves: typing goes on as if there had been none.
struct Typing {
    int cur, mode;
};

static After back_to(const Typing &before, int &mode) {
    editb.e_cur = before.cur;
    mode = before.mode;
    return After::refresh;
}

static After move(const Move &key, int &mode) {
    const Typing before = {editb.e_cur, mode};
    const int to = key.to(end_typing(mode));
    if (to < 0) {
        e_ringbell();
        return back_to(before, mode);
    }
    go_on_at(to);
    return After::refresh;
}

static After walk(const Walk &key, int &mode) {
    if (searching) {
        e_ringbell();
        return After::next_key;
    }
    const Typing before = {editb.e_cur, mode};
    editb.e_cur = end_typing(mode) - 1;
    editb.e_repeat = 1;
    const int shown = editb.e_hline;
    key.run(MODE_INPUT);
    if (editb.e_hline == shown) return back_to(before, mode);
    fetched = true;
    go_on_at(editb.e_cur + 1);
    return After::refresh;
}

// Takes the cluster behind the cursor.
static After delete_here(int &mode) {
    const int at = end_typing(mode);
    const bool any = at <= editb.e_eol;
    if (any) {
        editb.e_cur = at;
        delete_(end_at(at) - at, RESULT_BAD);
    } else {
        editb.e_cur = at - 1;
        e_ringbell();
    }
    return After::refresh;
}

// What follows a key that the first stage knows nothing of; After::done when it is none of these.
static After terminal_key(int c, int &mode) {
    for (const Move &key : kMoves)
        if (key.key == c) return move(key, mode);
    for (const Walk &key : kWalks)
        if (key.key == c) return walk(key, mode);
    return After::done;
}

// The first key behind a move begins an insertion, as `i` does.
static void begin_insertion() {
    moved = false;
    const int cur = editb.e_cur;
    editb.e_cur = std::min(cur + 1, editb.e_eol);
    save_v();
    editb.e_cur = cur;
}

// Ends the line, but where the program can't get it: then input goes on at what is in the way.
static After enter(int &mode) {
    int at = 0;
    if (mode == MODE_SEARCH || !e_refused(&at)) return finish(mode);
    (void)end_typing(mode);
    go_on_at(at);
    return After::refresh;
}

// The key behind ^V is text. A NUL can't be.
static After quoted_key(int &mode) {
    const int c = e_gettext();
    return text_key(c == kEscape ? kPasted | c : c, mode);
}

static After redraw() {
    next_row();
    return After::refresh;
}

static After obey(int c, int &mode) {
    if (c != kKeyPageUp && c != kKeyPageDown) prefix_len = -1;
    if (const After after = terminal_key(c, mode); after != After::done) return after;
    if (c != kEscape) {
        fetched = false;
        if (moved) begin_insertion();
    }
    moved = false;
    if (c == (kPasted | '\n') && mode != MODE_SEARCH) c = '\n';
    if (c == ctrl('V') || c == editb.e_lnext) return quoted_key(mode);
    if (c == editb.e_eof) return end_of_file(mode);
    if (c == editb.e_erase || c == ctrl('H')) return erase(c, mode);
    if (c == editb.e_kill) return kill(mode);
    if (c == editb.e_werase || c == ctrl('W')) return erase_word();
    if (c == editb.e_reprint) return redraw();
    switch (c) {
        case kKeyDelete:
            return delete_here(mode);
        case '\n':
            return enter(mode);
        case '\t':
            return tab_key(mode);
        case kEscape:
            if (mode != MODE_SEARCH) return After::commands;
            e_ringbell();
            return After::next_key;
        default:
            return text_key(c, mode);
    }
}

// A full line goes to the program as it is, marked as to be continued where there is room for that.
static void end_full_line() {
    const int last = editb.e_eol;
    if (last >= 0 && char_at(last) != '\\' && last + 1 < Limits.text) {
        (void)text_put(last + 1, U"\\", 1);  // there is room up to Limits.text
        editb.e_eol++;
        if (editb.e_cur == last) editb.e_cur++;
    }
    refresh(MODE_INPUT);
}

static int display_mode(int mode) { return mode == MODE_REPLACE ? MODE_CONTROL : MODE_INPUT; }

// Command mode, entered from input mode `mode`. Returns RESULT_ENTER or the input mode to go on in,
// with the cursor in place for it.
static int commands(int mode) {
    if (mode == MODE_REPLACE && editb.e_cur > -1) editb.e_cur--;
    const int next = cntlmode();
    if (next == MODE_INSERT) return MODE_APPEND;
    if (next != RESULT_ENTER) refresh(display_mode(next));
    return next;
}

void VIgetline(int mode) {
    editb.e_addnl = 1;
    moved = fetched = false;
    After after = mode == kEscape ? After::commands : After::next_key;
    while (after != After::done) {
        const bool by_command = after == After::commands;
        if (by_command) {
            mode = commands(mode);
            if (mode == RESULT_ENTER) return;
        } else if (after == After::refresh) {
            refresh(display_mode(mode));
        }
        view_mode = display_mode(mode);
        if (line_full()) {
            if (!by_command && mode != MODE_SEARCH) return end_full_line();
            e_ringbell();
            if (by_command) continue;
        }
        after = obey(e_gettyped(), mode);
    }
}

}  // namespace vi
