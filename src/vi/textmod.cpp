// textmod.cpp: the commands that change or yank text or lead into input mode. Each can be repeated;
// what was typed in its input mode is then put in from e_tmp.
#include <algorithm>
#include <cstring>

#include "edit/chars.h"
#include "edit/decode.h"
#include "history.h"
#include "vi_internal.h"

namespace vi {

struct Change {
    bool again;  // repeated by `.`
    int count;
};

// Whether the character can be overwritten on the screen alone: one column before and after, and
// what stands behind it too, where the cursor may go next.
static bool one_column(genchar c, int increment) {
    if (ocur_virt() == -1 || editb.e_cur < 0 || editb.e_cur >= editb.e_eol) return false;
    if (Row.at >= editb.e_wsize) return false;
    if (increment == 1 && Row.at == editb.e_wsize - 1) return false;
    if (columns_of(editb.e_cur + increment) >= kMaxLine) return false;  // behind the image's end
    return unit_plain(c) && unit_plain(char_at(editb.e_cur)) &&
           unit_plain(char_at(editb.e_cur + 1)) && text_back(editb.e_cur + 1, 1) == editb.e_cur;
}

void replace(int c, int increment) {
    const genchar stored = static_cast<genchar>(c & ~kPasted);
    if (one_column(stored, increment)) {
        (void)text_over(editb.e_cur, &stored, 1);
        row_overwrite(stored, increment);
        editb.e_cur += increment;
        ochar() = static_cast<int>(char_at(editb.e_cur));
        e_flush();
        return;
    }
    const int taken = end_at(editb.e_cur) - editb.e_cur;
    const int freed = editb.e_cur < 0 ? 0 : bytes_of_units(editb.e_inbuf + editb.e_cur, taken);
    if (bytes_of_units(&stored, 1) > freed + line_room()) {
        e_ringbell();
        return;
    }
    delete_(taken, RESULT_BAD);
    insert(c);
    if (increment == 1 && editb.e_cur < editb.e_eol) editb.e_cur++;
    refresh(MODE_CONTROL);
}

void cursor_behind() {
    if (editb.e_cur > -1) editb.e_cur = end_at(editb.e_cur) - 1;
}

// Puts `text` in behind the cursor, as often as `count` says or as there is room.
static void put_text(const TextCopy &text, int count) {
    for (; count > 0 && !line_full(); count--) {
        if (!fits(text.unit, text.len)) {
            e_ringbell();
            break;
        }
        for (int i = 0; i < text.len; i++) append(static_cast<int>(text.unit[i]), MODE_APPEND);
    }
    // Nothing went in before the first character: the line is not empty for that.
    if (editb.e_cur == -1 && editb.e_eol >= 0) editb.e_cur = 0;
    editb.e_cur = start_at(editb.e_cur);
    refresh(MODE_CONTROL);
}

static int put_after(const TextCopy &text, int count) {
    if (text.len == 0) return RESULT_BAD;
    save_v();
    cursor_behind();
    put_text(text, count);
    return RESULT_GOOD;
}

static int put_before(const TextCopy &text, int count) {
    if (text.len == 0) return RESULT_BAD;
    save_v();
    const int cur = editb.e_cur;
    if (cur > -1 && !line_full()) editb.e_cur--;
    put_text(text, count);
    return RESULT_GOOD;
}

static int append_text(Change &change) {
    if (change.again) return put_after(*editb.e_tmp, change.count);
    save_v();
    if (editb.e_cur != -1) {
        cursor_behind();
        editb.e_fcol = editb.e_cur + 1;
        // A row that waits for its refresh may have been stepped along before.
        if (Row.at < editb.e_wsize) row_step();
        e_flush();
    }
    return MODE_APPEND;
}

static int append_at_end(Change &change) {
    editb.e_cur = start_at(editb.e_eol);
    sync_cursor();
    return append_text(change);
}

static int insert_text(Change &change) {
    if (change.again) return put_before(*editb.e_tmp, change.count);
    save_v();
    if (editb.e_cur != -1) {
        editb.e_fcol = editb.e_cur;
        // The cursor stands on the last column of a character that doesn't print.
        const bool wide = !unit_printable(char_at(editb.e_cur));
        editb.e_cur--;
        if (wide) refresh(MODE_INPUT);
    }
    return MODE_INSERT;
}

static int insert_at_start(Change &change) {
    if (editb.e_cur != -1) editb.e_cur = editb.e_fcol;
    sync_cursor();
    return insert_text(change);
}

static int overwrite(Change &change) {
    if (change.again) return put_before(*editb.e_tmp, change.count);
    save_v();
    if (editb.e_cur != -1) editb.e_fcol = editb.e_cur;
    return MODE_REPLACE;
}

// First unit of the text last inserted, 0 for none.
static int last_typed() {
    return editb.e_tmp->len > 0 ? static_cast<int>(editb.e_tmp->unit[0]) : 0;
}

static int replace_one(Change &change) {
    const int c = change.again ? last_typed() : command_argument();
    if (editb.e_cur == -1 || !(change.again ? c != 0 : e_is_text(c))) return RESULT_BAD;
    editb.e_tmp->len = std::max(editb.e_tmp->len, 1);
    editb.e_tmp->unit[0] = static_cast<genchar>(c);
    save_v();
    replace(c, 0);
    return RESULT_GOOD;
}

// After a deletion: input mode, or the text typed in it before.
static int substitute(const Change &change) {
    if (!change.again) {
        editb.e_fcol = editb.e_cur + 1;
        return MODE_APPEND;
    }
    put_text(*editb.e_tmp, 1);
    return RESULT_GOOD;
}

static int substitute_chars(Change &change) {
    save_v();
    // On an empty line the cursor is in front of the text.
    const int end = text_ahead(std::max(editb.e_cur, 0), change.count);
    delete_(end - editb.e_cur, RESULT_BAD);
    return substitute(change);
}

// The motion behind an operator: the next key, or the one behind a count.
static int read_motion(const Change &change) {
    if (change.again) return last_motion();
    const int c = command_argument();
    return command_of(is_digit(c) && c != '0' ? getcount(c, command_argument) : c);
}

static int change_over(Change &change, int motion) {
    last_motion() = motion;
    if (motion == 'c') {
        del_line(RESULT_GOOD);
        return MODE_APPEND;
    }
    if (delmotion(motion, 'c') != 0) return RESULT_BAD;
    return substitute(change);
}

static int delete_over(int motion) {
    last_motion() = motion;
    if (motion == 'd') {
        del_line(RESULT_GOOD);
    } else {
        const int last = editb.e_eol;
        if (delmotion(motion, 'd') != 0) return RESULT_BAD;
        const bool deleted = editb.e_eol != last;
        if (deleted && editb.e_cur < editb.e_eol) editb.e_cur++;
        editb.e_cur = start_at(editb.e_cur);
    }
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

static int yank_over(int motion) {
    last_motion() = motion;
    if (motion == 'y') {
        text_copy(yankbuf);
    } else if (delmotion(motion, 'y') != 0) {
        return RESULT_BAD;
    }
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

static int change_motion(Change &change) { return change_over(change, read_motion(change)); }

static int change_line(Change &change) { return change_over(change, 'c'); }

static int change_to_end(Change &change) {
    change.again = false;  // leads into input mode also when repeated
    return change_over(change, '$');
}

static int delete_motion(Change &change) { return delete_over(read_motion(change)); }
static int delete_to_end(Change &) { return delete_over('$'); }
static int delete_here(Change &) { return delete_over('l'); }
static int delete_before(Change &) { return delete_over('h'); }
static int yank_motion(Change &change) { return yank_over(read_motion(change)); }
static int yank_to_end(Change &) { return yank_over('$'); }

static int put_yanked_after(Change &change) { return put_after(yankbuf, change.count); }
static int put_yanked_before(Change &change) { return put_before(yankbuf, change.count); }

static int toggle_case(Change &) {
    if (editb.e_cur == -1) return RESULT_BAD;
    save_v();
    const genchar unit = char_at(editb.e_cur);
    const genchar other = unit_upper(unit) ? unit_to_lower(unit) : unit_to_upper(unit);
    const int next = end_at(editb.e_cur);
    if (next - editb.e_cur == 1) {
        replace(static_cast<int>(other), 1);
        return RESULT_GOOD;
    }
    // What is joined to it stays.
    const int more = bytes_of_units(&other, 1) - bytes_of_units(&unit, 1);
    if (more > line_room() || !text_over(editb.e_cur, &other, 1)) e_ringbell();
    if (next <= editb.e_eol) editb.e_cur = next;
    refresh(MODE_CONTROL);
    return RESULT_GOOD;
}

static int append_word(Change &) {
    save_v();
    char words[kLineBuffer];
    genchar units[kLineBuffer];
    const char *word = hist_word(words, repeat_set != 0 ? editb.e_repeat : -1);
    int len = 0;
    if (word != nullptr && *word != '\0') {
        units[len++] = ' ';
        len +=
            units_from_bytes(units + len, kLineBuffer - len, word, static_cast<int>(strlen(word)));
    }
    if (len == 0 || !fits(units, len)) {
        e_ringbell();
        refresh(MODE_CONTROL);
        return RESULT_GOOD;
    }
    cursor_behind();
    for (int i = 0; i < len; i++) append(static_cast<int>(units[i]), MODE_APPEND);
    return MODE_APPEND;
}

struct TextCommand {
    int key;
    int (*run)(Change &change);
};
static constexpr TextCommand kCommands[] = {
    {'A', append_at_end},      // append at the end
    {'C', change_to_end},      // change to the end of the line
    {'D', delete_to_end},      // delete to the end of the line
    {'I', insert_at_start},    // insert at the start
    {'P', put_yanked_before},  // put before the cursor
    {'R', overwrite},          // overwrite
    {'S', change_line},        // change the whole line
    {'X', delete_before},      // delete before the cursor
    {'Y', yank_to_end},        // copy to the end of the line
    {'_', append_word},        // append the last word of the last line
    {'a', append_text},        // append behind the cursor
    {'c', change_motion},      // change over a motion
    {'d', delete_motion},      // delete over a motion
    {'i', insert_text},        // insert before the cursor
    {'p', put_yanked_after},   // put behind the cursor
    {'r', replace_one},        // replace one character
    {'s', substitute_chars},   // change characters
    {'x', delete_here},        // delete under the cursor
    {'y', yank_motion},        // copy over a motion
    {'~', toggle_case},        // change case
};

int textmod(int c, int mode) {
    Change change = {mode != 0, editb.e_repeat};
    // A repeated find takes the character that it had.
    const int motion = last_motion();
    if (change.again && (motion == 'f' || motion == 'F' || motion == 't' || motion == 'T'))
        last_motion() = ';';
    for (const TextCommand &command : kCommands)
        if (command.key == c) return command.run(change);
    return RESULT_BAD;
}

}  // namespace vi
