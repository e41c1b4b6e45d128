// command.cpp: command mode: counts, motions, commands on the text, moves in the history.
#include "edit/chars.h"
#include "edit/decode.h"
#include "history.h"
#include "vi_internal.h"

namespace vi {

static int previous_line(int) {
    walk_older(MODE_CONTROL);
    return RESULT_GOOD;
}

static int next_line(int) {
    walk_newer(MODE_CONTROL);
    return RESULT_GOOD;
}

static int older_alike(int) {
    walk_older_alike(MODE_CONTROL);
    return RESULT_GOOD;
}

static int newer_alike(int) {
    walk_newer_alike(MODE_CONTROL);
    return RESULT_GOOD;
}

static int go_to_line(int) {
    const int target = repeat_set != 0 ? editb.e_repeat : editb.e_hismin + 1;
    if (target <= editb.e_hismin || target > editb.e_hismax || !recallable(target)) {
        e_ringbell();
        return RESULT_GOOD;
    }
    walk_keep(MODE_CONTROL);
    editb.e_hline = target;
    if (target == editb.e_hismax) {
        walk_back(false, MODE_CONTROL);
    } else {
        save_v();
        walk_show(MODE_CONTROL);
    }
    return RESULT_GOOD;
}

static int search_history(int key) {
    save_v();
    walk_keep(MODE_CONTROL);
    const int result = search(key);
    if (result == 0) {
        forget_window();
        if (editb.e_hline == editb.e_hismax)
            walk_back(true, MODE_CONTROL);
        else
            walk_show(MODE_CONTROL);
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

// True, with the cursor there, where something in the line keeps it from the program.
static bool refused() {
    const bool any = e_refused(&editb.e_cur);
    if (any) refresh(MODE_CONTROL);
    return any;
}

static int accept(int) { return refused() ? RESULT_GOOD : RESULT_ENTER; }

static int accept_as_comment(int) {
    if (refused()) return RESULT_GOOD;
    if (editb.e_cur != -1) {
        // A comment that lost its last character does less harm than a command that lost its mark.
        while (editb.e_eol + 1 >= Limits.text || line_room() < 1) {
            const int at = start_at(editb.e_eol);
            text_take(at, text_len() - at);
            editb.e_eol = at - 1;
        }
        editb.e_cur = -1;
        insert('#');
        refresh(MODE_INPUT);
    }
    return RESULT_ENTER;
}

void next_row() {
    e_putchar('\n');
    pr_prompt();
    renew_row();
}

static int redraw(int) {
    next_row();
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

static int undo_all(int) {
    if (editb.e_cur == -1) {
        e_ringbell();
        return RESULT_GOOD;
    }
    save_v();
    set_line(*editb.e_Ubuf, 0);
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

static int undo(int) {
    restore_v();
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

struct Command {
    int key;
    int (*run)(int key);
};
static constexpr Command kCommands[] = {
    {'\n', accept},             // enter the line
    {ctrl('L'), redraw},        // draw the line again
    {'#', accept_as_comment},   // enter the line as a comment
    {'j', next_line},           // newer line
    {'+', next_line},           // newer line
    {'k', previous_line},       // older line
    {'-', previous_line},       // older line
    {'/', search_history},      // search towards older lines
    {'?', search_history},      // search towards newer lines
    {'n', search_history},      // search again
    {'N', search_history},      // search again, the other way
    {'G', go_to_line},          // to the line with the number before it, to the oldest without
    {'U', undo_all},            // undo all changes
    {'u', undo},                // undo the last change
    {kKeyPageUp, older_alike},  // the older command that begins as the line does, up to the cursor
    {kKeyPageDown, newer_alike},  // the newer one
};

// Keys of the terminal that do what a command of one character does.
struct Synonym {
    int key;
    int command;
};
static constexpr Synonym kSynonyms[] = {
    {kKeyLeft, 'h'},           // a character to the left
    {kKeyRight, 'l'},          // a character to the right
    {kKeyUp, 'k'},             // the older command
    {kKeyDown, 'j'},           // the newer command, or the edited line
    {kKeyHome, '0'},           // the start of the line
    {kKeyEnd, '$'},            // its last character
    {kKeyDelete, 'x'},         // takes the character under the cursor
    {kCtrl | kKeyLeft, 'b'},   // a word to the left
    {kAlt | kKeyLeft, 'b'},    // the same
    {kCtrl | kKeyRight, 'w'},  // a word to the right
    {kAlt | kKeyRight, 'w'},   // the same
};

int command_of(int key) {
    for (const Synonym &synonym : kSynonyms)
        if (synonym.key == key) return synonym.command;
    return key;
}

static const Command *find_command(int key) {
    for (const Command &command : kCommands)
        if (command.key == key) return &command;
    return nullptr;
}

static int run_command(int c) {
    int result = RESULT_GOOD;
    const Command *command = find_command(c);
    if (command != nullptr)
        result = command->run(c);
    else
        ring_for_key();
    editb.e_repeat = 1;
    return result;
}

static void enter() {
    if (editb.e_saved == 0) {
        text_copy(*editb.e_Ubuf);
        editb.e_saved = 1;
    }
    save_last();
    if (!fetched) editb.e_hline = editb.e_hismax;
    fetched = false;
    editb.e_fcol = 0;
    editb.e_repeat = 1;
    if (editb.e_cur == -1 && editb.e_eol >= 0) editb.e_cur = 0;
    // What was typed may join what stands behind it now.
    const bool joins = start_at(editb.e_cur + 1) <= editb.e_cur;
    editb.e_cur = start_at(editb.e_cur);
    Row.cut = -1;
    if (joins)
        refresh(MODE_CONTROL);
    else
        sync_cursor();
}

// A pasted key is no command, and makes one fail that it would belong to. The bell rings once for
// the whole paste.
static bool drop_pasted(int key) {
    const bool pasted = key > 0 && (key & kPasted) != 0;
    if (pasted) ring_for_key();
    return pasted;
}

static int rest_of_command(int key) { return drop_pasted(key) ? kKeyNothing : key; }

static int key_behind_count() { return rest_of_command(e_getkey()); }

int command_argument() { return rest_of_command(e_gettyped()); }

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
    int key = 0;
    do {
        key = e_getkey();
    } while (drop_pasted(key));
    if (key != kKeyPageUp && key != kKeyPageDown) prefix_len = -1;
    return command_of(key);
}

static int line_start() {
    if (editb.e_cur > 0) editb.e_cur = 0;
    sync_cursor();
    return RESULT_GOOD;
}

static int obey(int c) {
    repeat_set = 0;
    if (c == '0') return line_start();
    if (is_digit(c)) {
        editb.e_mode = editb.e_repeat;
        c = command_of(getcount(c, key_behind_count));
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
    if (result == RESULT_BAD) return run_command(c);
    last_cmd = c;
    editb.e_mode = editb.e_repeat;
    editb.e_repeat = 1;
    return result;
}

int cntlmode() {
    enter();
    for (;;) {
        const int result = obey(command_key());
        if (result != RESULT_GOOD) return result;
        const int at = start_at(editb.e_cur);
        if (at == editb.e_cur) continue;
        editb.e_cur = at;
        sync_cursor();
    }
}

}  // namespace vi
