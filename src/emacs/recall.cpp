// recall.cpp: moves through the history, and the line that ^O asks for.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "edit/chars.h"
#include "emacs.h"
#include "emacs_internal.h"

namespace emacs {

// State: of the line read, whether it was fetched for ^O, and from where.
static bool fetched = false;
static histloc fetched_from = {0, 0};
static const TextCopy *fetched_line = nullptr;

// State: the line being edited, while a command takes its place.
static KeptLine newest = {false, 0, {}};

bool copy_history_line(TextCopy &copy) {
    char bytes[kLineBuffer];
    if (hist_copy(bytes, editb.e_hline, editb.e_hloff) < 0) return false;
    // Behind the longest line newline and NUL still fit.
    const int room = std::min(Limits.text, Limits.joint - 2 - editb.e_plen);
    const int len = static_cast<int>(std::strlen(bytes));
    if (len > room) e_ringbell();
    copy.len = units_from_bytes(copy.unit, room, bytes, len);
    return true;
}

bool recallable(histloc place) {
    static char bytes[kLineBuffer];
    return hist_copy(bytes, place.his_command, place.his_line) >= 0 &&
           static_cast<int>(std::strlen(bytes)) <= Limits.text;
}

void recall_line() {
    static TextCopy copy;
    if (copy_history_line(copy)) (void)text_set(copy.unit, copy.len);
}

static After show_location() {
    editb.e_hline = location.his_command;
    editb.e_hloff = location.his_line;
    recall_line();
    return After::drawline;
}

// The oldest command in reach, -1 when there is none. Numbers in reach need not all be taken: the
// history may be shorter, or start with a number found in the middle of its file.
static int oldest_command() {
    if (fc_fix == nullptr) return -1;
    for (int n = std::max(editb.e_hismin, 1); n < editb.e_hismax; n++)
        if (hist_position(n) >= 0) return n;
    return -1;
}

After downarrow(Command &command) {
    location = hist_locate(editb.e_hline, editb.e_hloff, command.count);
    if (location.his_command > editb.e_hismax) {
        e_ringbell();
        return After::next_key;
    }
    return show_location();
}

After uparrow(Command &command) {
    location = hist_locate(editb.e_hline, editb.e_hloff, -command.count);
    if (location.his_command < editb.e_hismin) {
        e_ringbell();
        location = {oldest_command(), 0};
        if (location.his_command < 0) return After::next_key;
    }
    return show_location();
}

// --- Walks that bring the line being edited back ---

void begin_walk() { newest.any = false; }

void keep_newest() {
    if (editb.e_hline != editb.e_hismax) return;
    newest.any = true;
    newest.cur = editb.e_cur;
    text_copy(newest.text);
}

static After newest_back(Command &command) {
    editb.e_hline = editb.e_hismax;
    editb.e_hloff = 0;
    editb.e_eol = text_set(newest.text.unit, newest.any ? newest.text.len : 0);
    command.i = newest.any ? newest.cur : 0;
    return After::update;
}

// The first place that can be shown from `place` on, by single steps in the direction `step`;
// his_command -1 when none is left, e_hismax for the line being edited.
static histloc shown_from(histloc place, int step) {
    while (place.his_command >= std::max(editb.e_hismin, 0) && place.his_command < editb.e_hismax) {
        if (recallable(place)) return place;
        place = hist_locate(place.his_command, place.his_line, step);
    }
    return {place.his_command < editb.e_hismin ? -1 : std::min(place.his_command, editb.e_hismax),
            0};
}

static After walk(Command &command, int lines) {
    histloc to = hist_locate(editb.e_hline, editb.e_hloff, lines);
    const bool past_oldest = to.his_command < editb.e_hismin;
    bool past_newest = to.his_command > editb.e_hismax;
    if (past_newest && editb.e_hline < editb.e_hismax)
        past_newest =
            hist_locate(editb.e_hline, editb.e_hloff, lines - 1).his_command > editb.e_hismax;
    to = past_oldest ? shown_from({oldest_command(), 0}, 1) : shown_from(to, lines < 0 ? -1 : 1);
    const bool none = to.his_command < 0;
    if (past_oldest || past_newest || none) e_ringbell();
    if (none) return After::next_key;

    keep_newest();
    if (to.his_command == editb.e_hismax) return newest_back(command);
    location = to;
    return show_location();
}

After older(Command &command) { return walk(command, -command.count); }

After newer(Command &command) { return walk(command, command.count); }

// The command next to `number` in the direction `step` that begins with `prefix`; behind the newest
// of them the line being edited; -1 for none.
static int next_match(const char *prefix, int number, int step) {
    const int none = step > 0 && number < editb.e_hismax ? editb.e_hismax : -1;
    for (;;) {
        const histloc found = hist_find(prefix, number, 0, step);
        number = found.his_command;
        if (number < 0 || number >= editb.e_hismax) return none;
        const bool first_line = found.his_line == 0 && hist_position(number) >= 0;
        if (first_line && recallable({number, 0})) return number;
    }
}

// The text before the cursor is the prefix, and stays before it.
static After walk_matches(Command &command, int step) {
    static char prefix[kLineBuffer];
    prefix[bytes_from_units(prefix, kLineBuffer - 1, editb.e_inbuf, command.i)] = '\0';
    int number = editb.e_hline;
    int left = command.count;
    for (; left > 0; left--) {
        const int next = next_match(prefix, number, step);
        if (next < 0) break;
        number = next;
    }
    if (left > 0) e_ringbell();
    if (number == editb.e_hline) return After::next_key;

    keep_newest();
    if (number == editb.e_hismax) return newest_back(command);
    location = {number, 0};
    (void)show_location();
    editb.e_eol = text_len();
    command.i = std::min(command.i, editb.e_eol);
    return After::update;
}

After older_match(Command &command) { return walk_matches(command, -1); }

After newer_match(Command &command) { return walk_matches(command, 1); }

// --- The last word of a command ---

// State: what was put in, in which turn, and from which command. Another line is another turn.
static struct {
    int turn;
    int at, len;
    int number;
} word = {-1, 0, 0, 0};

// The last word of command `number`; of no length when there is none, or the command is longer than
// any line.
static std::string_view word_of(int number) {
    static char bytes[kLineBuffer];
    if (fc_fix == nullptr || hist_position(number) < 0 || hist_copy(bytes, number, -1) < 0)
        return {};
    int end = static_cast<int>(std::strlen(bytes));
    if (end > Limits.text) return {};
    while (end > 0 && is_blank(byte_of(bytes[end - 1]))) end--;
    int start = end;
    while (start > 0 && !is_blank(byte_of(bytes[start - 1]))) start--;
    return {bytes + start, static_cast<std::size_t>(end - start)};
}

// The next command older than `number` that has such a word, -1 for none.
static int older_with_word(int number) {
    for (number--; number >= std::max(editb.e_hismin, 1); number--)
        if (!word_of(number).empty()) return number;
    return -1;
}

After last_word(Command &command) {
    static genchar unit[kLineUnits];
    if (word.turn != turn - 1) word = {0, command.i, 0, editb.e_hline};
    word.turn = turn;
    int number = word.number;
    for (int left = command.count; left > 0 && number >= 0; left--)
        number = older_with_word(number);
    if (number < 0) {
        e_ringbell();
        return After::next_key;
    }
    word.number = number;
    const std::string_view found = word_of(number);
    const int size = static_cast<int>(found.size());
    const int len = units_from_bytes(unit, kLineUnits, found.data(), size);
    if (!replace_units(word.at, word.len, unit, len)) return After::next_key;
    word.len = len;
    command.i = word.at + len;
    return After::update;
}

After search_history(Command &command) {
    search(command.count);
    return After::drawline;
}

// As the newest kill, to be put in by the first key.
static void yank_fetched() {
    fetched_line = editb.e_tmp;
    (void)copy_history_line(*editb.e_tmp);
    e_ungetchar(ctrl('Y'));
}

// Where kills live on it is none.
static void show_fetched() {
    static TextCopy copy;
    fetched_line = &copy;
    copy.len = 0;
    if (recallable(location)) (void)copy_history_line(copy);
    editb.e_cur = editb.e_eol = text_set(copy.unit, copy.len);
    draw(UPDATE);
}

static void (*put_fetched)() = yank_fetched;  // chosen once a run

void recall_begin(bool extended) { put_fetched = extended ? show_fetched : yank_fetched; }

void fetch_next_line() {
    fetched = CntrlO != 0;
    CntrlO = 0;
    if (!fetched) return;
    fetched_from = location;
    editb.e_hline = location.his_command;
    editb.e_hloff = location.his_line;
    put_fetched();
}

void give_fetched_back() {
    if (!fetched || !text_equals(*fetched_line)) return;
    location = fetched_from;
    CntrlO = 1;
    e_taken_len = 0;
}

}  // namespace emacs

void emacs_recorded() {
    using namespace emacs;
    if (CntrlO == 0) return;
    location = hist_locate(location.his_command, location.his_line, 1);
    CntrlO = fc_fix != nullptr && location.his_command < fc_fix->fixind ? 1 : 0;
}

bool emacs_has_line() { return emacs::CntrlO != 0; }
