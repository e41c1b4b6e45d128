// command.cpp: command mode: counts, motions, commands on the text, moves in the history.
#include <cstring>
#include <type_traits>

#include "edit/chars.h"
#include "edit/decode.h"
#include "history.h"
#include "vi_internal.h"

namespace vi {

// One stay in command mode: the command, and the line being edited while the history is shown.
struct Visit {
    int key;
    int column;      // cursor of the kept line; -1: none kept, or an empty one
    TextCopy *undo;  // e_ubuf, which points at `kept` while that is saved or brought back
    TextCopy kept;
};
static_assert(std::is_trivially_destructible_v<Visit>);

// To be called before the history position changes: leaving the edited line keeps it.
static void keep_line(Visit &visit) {
    if (editb.e_hline != editb.e_hismax) return;
    const int saved = editb.e_ucol;
    editb.e_ubuf = &visit.kept;
    save_v();
    visit.column = editb.e_ucol;
    editb.e_ubuf = visit.undo;
    editb.e_ucol = saved;
}

// `shown_saved`: the line it replaces is saved for undo already.
static void bring_line_back(Visit &visit, bool shown_saved) {
    if (visit.column == -1) {
        if (!shown_saved) save_v();
        set_line(nullptr, 0, 0);
    } else {
        editb.e_ubuf = &visit.kept;
        editb.e_ucol = visit.column;
        restore_v();
        editb.e_ubuf = visit.undo;
    }
    refresh(MODE_CONTROL);
}

static void load_line() {
    char bytes[kLineBuffer];
    genchar units[kLineBuffer];
    if (hist_copy(bytes, editb.e_hline, -1) < 0) bytes[0] = '\0';
    const int len = static_cast<int>(strlen(bytes));
    if (len > Limits.text) e_ringbell();  // it is cut
    set_line(units, units_from_bytes(units, kLineBuffer, bytes, len), 0);
    refresh(MODE_CONTROL);
}

static int previous_line(Visit &visit) {
    keep_line(visit);
    editb.e_hline -= editb.e_repeat;
    if (editb.e_hline <= editb.e_hismin) {
        editb.e_hline = editb.e_hismin + 1;
        e_ringbell();
        return RESULT_GOOD;
    }
    save_v();
    load_line();
    return RESULT_GOOD;
}

static int next_line(Visit &visit) {
    const bool away = editb.e_hline < editb.e_hismax;
    editb.e_hline += editb.e_repeat;
    if (editb.e_hline > editb.e_hismax) {
        editb.e_hline = editb.e_hismax;
        e_ringbell();
        if (away) bring_line_back(visit, false);
    } else if (editb.e_hline == editb.e_hismax) {
        bring_line_back(visit, false);
    } else {
        save_v();
        load_line();
    }
    return RESULT_GOOD;
}

static int go_to_line(Visit &visit) {
    const int target = repeat_set != 0 ? editb.e_repeat : editb.e_hismin + 1;
    if (target <= editb.e_hismin || target > editb.e_hismax) {
        e_ringbell();
        return RESULT_GOOD;
    }
    keep_line(visit);
    editb.e_hline = target;
    if (target == editb.e_hismax) {
        bring_line_back(visit, false);
    } else {
        save_v();
        load_line();
    }
    return RESULT_GOOD;
}

static int search_history(Visit &visit) {
    save_v();
    keep_line(visit);
    const int result = search(visit.key);
    if (result == 0) {
        forget_window();
        if (editb.e_hline == editb.e_hismax)
            bring_line_back(visit, true);
        else
            load_line();
        return RESULT_GOOD;
    }
    if (result == -1) e_ringbell();
    if (editb.e_ucol == -1)
        del_line(RESULT_BAD);
    else
        restore_v();
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

static int accept(Visit &) { return RESULT_ENTER; }

static int accept_as_comment(Visit &) {
    if (editb.e_cur != -1) {
        // A comment that lost its last character does less harm than a command that lost its mark.
        if (editb.e_eol + 1 >= Limits.text) {
            text_take(Limits.text - 1, text_len() - (Limits.text - 1));
            editb.e_eol = Limits.text - 2;
        }
        editb.e_cur = -1;
        insert('#');
        refresh(MODE_INPUT);
    }
    return RESULT_ENTER;
}

static int redraw(Visit &) {
    e_putchar('\n');
    pr_prompt();
    renew_row();
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

static int undo_all(Visit &) {
    if (editb.e_cur == -1) {
        e_ringbell();
        return RESULT_GOOD;
    }
    save_v();
    set_line(*editb.e_Ubuf, 0);
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

static int undo(Visit &) {
    restore_v();
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

struct Command {
    int key;
    int (*run)(Visit &visit);
};
static constexpr Command kCommands[] = {
    {'\n', accept},        {ctrl('L'), redraw},   {'#', accept_as_comment}, {'j', next_line},
    {'+', next_line},      {'k', previous_line},  {'-', previous_line},     {'/', search_history},
    {'?', search_history}, {'n', search_history}, {'N', search_history},    {'G', go_to_line},
    {'U', undo_all},       {'u', undo},           {kKeyUp, previous_line},  {kKeyDown, next_line},
};

static const Command *find_command(int key) {
    for (const Command &command : kCommands)
        if (command.key == key) return &command;
    return nullptr;
}

static int run_command(int c, Visit &visit) {
    int result = RESULT_GOOD;
    const Command *command = find_command(c);
    visit.key = c;
    if (command != nullptr)
        result = command->run(visit);
    else
        e_ringbell();
    editb.e_repeat = 1;
    return result;
}

static void enter() {
    if (editb.e_saved == 0) {
        text_copy(*editb.e_Ubuf);
        editb.e_saved = 1;
    }
    save_last();
    editb.e_hline = editb.e_hismax;
    editb.e_fcol = 0;
    editb.e_repeat = 1;
    if (editb.e_cur == -1 && editb.e_eol >= 0) editb.e_cur = 0;
    sync_cursor();
}

// The first key of a command. The escape key of an arrow key may have ended the driver's part,
// which leaves the bracket and the letter.
static int command_key() {
    view_mode = MODE_CONTROL;
    if (after_escape) {
        after_escape = false;
        const int c = e_getchar();
        e_ungetchar(c);
        if (c == '[') e_ungetchar(kEscape);
    }
    return e_getkey();
}

static int line_start() {
    if (editb.e_cur > 0) editb.e_cur = 0;
    sync_cursor();
    return RESULT_GOOD;
}

static int obey(int c, Visit &visit) {
    repeat_set = 0;
    if (c == '0') return line_start();
    if (is_digit(c)) {
        editb.e_mode = editb.e_repeat;
        c = getcount(c, e_getkey);
        if (c == '.') editb.e_mode = editb.e_repeat;
    }
    const int moved = mvcursor(c);
    if (moved == 0) {
        sync_cursor();
        editb.e_repeat = 1;
        return RESULT_GOOD;
    }
    const bool again = c == '.';
    if (again) {
        c = last_cmd;
        editb.e_repeat = editb.e_mode;
    }
    const int result = textmod(c, again ? c : 0);
    if (result == RESULT_BAD) return run_command(c, visit);
    last_cmd = c;
    editb.e_mode = editb.e_repeat;
    editb.e_repeat = 1;
    return result;
}

int cntlmode() {
    Visit visit;
    visit.column = -1;
    visit.undo = editb.e_ubuf;
    visit.kept.len = 0;
    enter();
    for (;;) {
        const int result = obey(command_key(), visit);
        if (result != RESULT_GOOD) return result;
    }
}

}  // namespace vi
