// input.cpp: input mode, and the way between it and command mode.
#include <algorithm>

#include "edit/chars.h"
#include "edit/complete.h"
#include "edit/decode.h"
#include "vi_internal.h"

namespace vi {

// What follows a key.
enum class After { refresh, next_key, commands, done };

// Judged by the line itself: the image may be out of date.
bool line_full() {
    return editb.e_eol >= editb.e_llimit || columns_of(editb.e_eol + 1) - 1 >= editb.e_llimit;
}

void insert(int c) {
    if (editb.e_eol + 1 >= Limits.text) return;
    const genchar unit = static_cast<genchar>(c & ~kPasted);
    if (!text_put(editb.e_cur + 1, &unit, 1)) return;
    editb.e_eol++;
    editb.e_cur++;
}

void append(int c, int mode) {
    if (line_full()) return;
    if (mode == MODE_APPEND || editb.e_cur == editb.e_eol) {
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

static After text_key(int c, int &mode) {
    if (mode == MODE_REPLACE) {
        if (editb.e_cur < editb.e_eol) {
            replace(c, 1);
            return After::next_key;
        }
        delete_(1, RESULT_BAD);
        mode = MODE_APPEND;
    }
    append(c, mode);
    return After::refresh;
}

// Text is overwritten by a TAB as by any other key, and a search text holds one.
static After tab_key(int &mode) {
    if (mode != MODE_APPEND) return text_key('\t', mode);
    const int at = editb.e_cur + 1;
    const int room = std::max(editb.e_llimit - 1 - columns_of(editb.e_eol + 1), 0);
    const Completion done = complete_at(at, room);
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
            editb.e_cur--;
        else
            e_ringbell();
        return After::refresh;
    }
    if (quoted(editb.e_erase == kNoKey ? c : editb.e_erase)) return After::refresh;
    const bool prefix = mode == MODE_SEARCH && editb.e_cur == 0;
    if (prefix) editb.e_fcol = 0;
    delete_(1, RESULT_BAD);
    return prefix ? After::done : After::refresh;
}

static After kill(int mode) {
    if (quoted(editb.e_kill)) return After::refresh;
    if (mode != MODE_SEARCH) {
        del_line(RESULT_GOOD);
    } else if (editb.e_cur > 0) {
        editb.e_cur = 1;
        delmotion('$', RESULT_BAD);
    }
    return After::refresh;
}

static After erase_word() {
    const int last = editb.e_cur;
    if (last > editb.e_fcol && unit_blank(char_at(last - 1))) {
        delete_(1, RESULT_BAD);
    } else {
        backword(1, 'b');
        delete_(last - editb.e_cur + 1, RESULT_BAD);
    }
    return After::refresh;
}

// The key behind ^V is text. A NUL can't be.
static After quoted_key(int &mode) {
    const int c = e_getquoted();
    if (c != 0) return text_key(c, mode);
    e_ringbell();
    return After::next_key;
}

static After obey(int c, int &mode) {
    if (c == ctrl('V')) return quoted_key(mode);
    if (c == editb.e_eof) return end_of_file(mode);
    if (c == editb.e_erase || c == ctrl('H')) return erase(c, mode);
    if (c == editb.e_kill) return kill(mode);
    switch (c) {
        case ctrl('W'):
            return erase_word();
        case '\n':
            return finish(mode);
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
