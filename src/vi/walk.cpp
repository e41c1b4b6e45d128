// walk.cpp: the way through the history, away from the line being edited and back. That line is
// kept while another one is shown; e_hline tells which one is, e_hismax for the line itself. Both
// modes walk: command mode puts the cursor on the first character of what it fetches, input mode
// behind the last.
#include <algorithm>
#include <cstring>

#include "edit/chars.h"
#include "history.h"
#include "vi_internal.h"

namespace vi {

// State: the edited line, of use while another one is shown.
static TextCopy Kept;
static int Kept_at = -1;  // cursor; in input mode the index of the character behind it

int prefix_len = -1;

static int behind(int mode) { return mode == MODE_INPUT ? 1 : 0; }

// The cursor on the character `at`, or before it.
static void put_cursor(int at, int mode) {
    at = std::min(at, mode == MODE_INPUT ? editb.e_eol + 1 : editb.e_eol);
    editb.e_cur = mode == MODE_INPUT ? at - 1 : start_at(at);
}

void walk_keep(int mode) {
    if (editb.e_hline != editb.e_hismax) return;
    text_copy(Kept);
    Kept_at = editb.e_cur + behind(mode);
}

void walk_back(bool shown_saved, int mode) {
    if (Kept.len > 0) {
        editb.e_ucol = editb.e_cur;
        ocur_virt() = kNoRefresh;
    } else if (!shown_saved) {
        save_v();
    }
    set_line(Kept, Kept_at);
    put_cursor(Kept_at, mode);
    refresh(mode);
}

// Makes the line what command e_hline is.
static void fetch() {
    char bytes[kLineBuffer];
    genchar units[kLineBuffer];
    if (hist_copy(bytes, editb.e_hline, -1) < 0) bytes[0] = '\0';
    const int len = static_cast<int>(strlen(bytes));
    if (len > Limits.text) e_ringbell();  // it is cut
    set_line(units, units_from_bytes(units, kLineBuffer, bytes, len), 0);
}

void walk_show(int mode) {
    fetch();
    if (mode == MODE_INPUT) editb.e_cur = editb.e_eol;
    refresh(mode);
}

bool recallable(int command) {
    if (Limits.ends) return true;
    static char bytes[kLineBuffer];
    return hist_copy(bytes, command, -1) >= 0 && static_cast<int>(strlen(bytes)) <= Limits.text;
}

// The first command from `command` on, by steps of `step`, that can be shown, as far as any has
// text.
static int shown_from(int command, int step) {
    while (command > editb.e_hismin && command < editb.e_hismax && !recallable(command))
        command += step;
    return command;
}

void walk_older(int mode) {
    walk_keep(mode);
    editb.e_hline = shown_from(editb.e_hline - editb.e_repeat, -1);
    if (editb.e_hline <= editb.e_hismin) {
        editb.e_hline = shown_from(editb.e_hismin + 1, 1);
        e_ringbell();
        return;
    }
    save_v();
    walk_show(mode);
}

void walk_newer(int mode) {
    const bool away = editb.e_hline < editb.e_hismax;
    editb.e_hline = shown_from(editb.e_hline + editb.e_repeat, 1);
    if (editb.e_hline > editb.e_hismax) {
        editb.e_hline = editb.e_hismax;
        e_ringbell();
        if (away) walk_back(false, mode);
    } else if (editb.e_hline == editb.e_hismax) {
        walk_back(false, mode);
    } else {
        save_v();
        walk_show(mode);
    }
}

// The next command, newer (`towards` 1) or older (-1), that begins with what is before the cursor;
// -1 for none.
static int find_alike(int towards, int mode) {
    if (prefix_len < 0) prefix_len = editb.e_cur + behind(mode);
    prefix_len = std::clamp(prefix_len, 0, text_len());
    char prefix[kLineBuffer];
    const int len = bytes_from_units(prefix, kLineBuffer - 1, editb.e_inbuf, prefix_len);
    prefix[len] = '\0';
    int found = editb.e_hline;
    do {
        found = hist_find(prefix, found, 0, towards).his_command;
    } while (found >= 0 && !recallable(found));
    return found < editb.e_hismax && found > editb.e_hismin ? found : -1;
}

static void walk_alike(int towards, int mode) {
    const int found = find_alike(towards, mode);
    const bool back = found < 0 && towards > 0 && editb.e_hline < editb.e_hismax;
    if (found < 0 && !back) {
        e_ringbell();
        return;
    }
    walk_keep(mode);
    editb.e_hline = back ? editb.e_hismax : found;
    if (back) return walk_back(false, mode);
    save_v();
    fetch();
    put_cursor(prefix_len, mode);
    refresh(mode);
}

void walk_older_alike(int mode) { walk_alike(-1, mode); }
void walk_newer_alike(int mode) { walk_alike(1, mode); }

}  // namespace vi
