// find.cpp: see find.h. The search is a row of steps, one for each character typed and for each
// repeat; the erase key goes back by one. A step says beyond which command its search begins. That
// goes on, part by part, until a key is there: another character carries on from where it has come
// to, since what doesn't hold the shorter text doesn't hold the longer one; every other key but
// those that take something back waits for the result. So it doesn't matter how fast keys come.
#include "emacs/find.h"

#include <algorithm>
#include <string_view>

#include "edit/chars.h"
#include "edit/decode.h"
#include "edit/prompt.h"

namespace emacs {

enum class Result { looking, found, none };

struct FindStep {
    int len;        // units of the text
    int direction;  // -1 older, 1 newer
    int from;       // the command beyond which its search begins
    bool repeat;    // the text is that of the step before
    Result result;
    histloc shown;  // what it has found; else what was found before, his_command -1 for nothing
};

static constexpr int kFindSteps = 1024;  // the oldest are forgotten
static constexpr int kMostLead = kSearchSize + 16;

// State of one search.
static bool Finding = false;
static bool Taking_key = false;  // nothing is looked for meanwhile
static genchar Text[kSearchSize];
static FindStep Steps[kFindSteps];
static int Step_count = 0;
static int Reached = 0;          // the command looked at last for the newest step
static histloc Began = {0, 0};   // where the line was
static genchar Lead[kMostLead];  // what stands in place of the prompt

static FindStep &newest_step() { return Steps[Step_count - 1]; }

static void add_step(const FindStep &step) {
    if (Step_count == kFindSteps) std::move(Steps + 1, Steps + Step_count--, Steps);
    Steps[Step_count++] = step;
    Reached = step.from;
}

// --- Looking ---

static void step_done(Result result) {
    FindStep &step = newest_step();
    step.result = result;
    const bool rings =
        step.repeat || Step_count < 2 || Steps[Step_count - 2].result != Result::none;
    if (result == Result::none && rings) e_ringbell();
}

// Goes on looking for a few milliseconds. True when the newest step has its result.
static bool look() {
    FindStep &step = newest_step();
    if (step.result != Result::looking) return true;
    char bytes[kSearchSize];
    bytes[bytes_from_units(bytes, kSearchSize - 1, Text, step.len)] = '\0';
    const histloc found = hist_find_part(bytes, &Reached, step.direction);
    if (found.his_command == kHistGoesOn) return false;
    if (found.his_command >= 0 && !recallable(found)) {
        Reached = found.his_command;
        return false;
    }
    if (found.his_command >= 0) step.shown = found;
    step_done(found.his_command >= 0 ? Result::found : Result::none);
    return true;
}

// Looks until there is a result. Signals are served meanwhile.
static void finish_looking() {
    while (!look()) (void)e_key_comes();
}

// Looks until there is a result or a key. A paste is looked for when it is whole.
static void look_for_a_while() {
    if (decode_in_paste() && e_key_comes()) return;
    while (!look() && !e_key_comes()) {
    }
}

// --- The row ---

// Where the last occurrence of the text in the line begins; the line's end where it isn't there.
static int occurrence(int len) {
    const auto is_at = [len](int at) {
        return std::equal(Text, Text + len, editb.e_inbuf + at, unit_stands_for);
    };
    int at = text_len() - len;
    while (at >= 0 && !is_at(at)) at--;
    return at >= 0 ? cluster_start(editb.e_inbuf, text_len(), at) : text_len();
}

static void put_line() {
    const FindStep &step = newest_step();
    const histloc place = step.shown.his_command >= 0 ? step.shown : Began;
    editb.e_hline = place.his_command;
    editb.e_hloff = place.his_line;
    if (step.shown.his_command >= 0)
        recall_line();
    else
        (void)text_set(kept.text.unit, kept.text.len);  // it was there before
    editb.e_eol = text_len();
    const bool in_it = step.len > 0 && step.result == Result::found;
    editb.e_cur = in_it ? occurrence(step.len) : editb.e_eol;
}

static genchar *put_ascii(genchar *to, std::string_view text) {
    return std::copy(text.begin(), text.end(), to);
}

static void show() {
    const FindStep &step = newest_step();
    put_line();
    const char *const kind = step.result == Result::none ? "(none)'"
                             : step.direction > 0        ? "(on)'"
                                                         : "(back)'";
    genchar *end = put_ascii(Lead, kind);
    end = std::copy(Text, Text + step.len, end);
    end = put_ascii(end, "': ");
    show_lead(Lead, static_cast<int>(end - Lead));
    draw(UPDATE);
}

// The end of a paste is no key: what was pasted is looked for before the next one is waited for.
void find_make_up() {
    if (!Finding || !Taking_key || decode_in_paste()) return;
    if (newest_step().result != Result::looking) return;
    while (!look()) {
    }
    show();
}

// --- Keys ---

static int take_key() {
    Taking_key = true;
    const int key = next_key();
    Taking_key = false;
    return key;
}

static void type(genchar unit) {
    if (newest_step().repeat) finish_looking();
    const FindStep &last = newest_step();
    Text[last.len] = unit;
    if (bytes_of_units(Text, last.len + 1) >= kSearchSize) {
        e_ringbell();
        return;
    }
    FindStep next = last;
    next.len++;
    next.repeat = false;
    // What is shown may hold the longer text as well.
    const bool any = last.shown.his_command >= 0;
    next.from = any ? last.shown.his_command - last.direction : Began.his_command;
    if (last.result == Result::looking) next.from = Reached;
    const bool in_vain = last.result == Result::none && !last.repeat;
    next.result = in_vain ? Result::none : Result::looking;
    add_step(next);
}

static void take_back() {
    if (Step_count == 1) {
        e_ringbell();
        return;
    }
    Step_count--;
    Reached = newest_step().from;
}

// The text is that of the search before.
static void take_last_text(int direction) {
    const int len = units_from_bytes(Text, kSearchSize, string,
                                     static_cast<int>(std::string_view(string).size()));
    if (len == 0)
        e_ringbell();
    else
        add_step({len, direction, Began.his_command, false, Result::looking, {-1, 0}});
}

static void repeat(int direction) {
    finish_looking();
    const FindStep &last = newest_step();
    if (last.len == 0) {
        take_last_text(direction);
        return;
    }
    if (last.result == Result::none && last.direction == direction) {
        e_ringbell();
        return;
    }
    const histloc from = last.shown.his_command >= 0 ? last.shown : Began;
    add_step({last.len, direction, from.his_command, true, Result::looking, last.shown});
}

// Behind a backslash the user's erase and kill characters, and what doesn't print, are text in its
// place.
static bool type_quoted(int key) {
    if (backslash == 0) return false;
    backslash = 0;
    const genchar unit = static_cast<genchar>(key & ~kPasted);
    const bool quoted = key == editb.e_erase || key == editb.e_kill ||
                        (unit < kKeyBase && key != '\n' && !unit_printable(unit));
    if (!quoted) return false;
    if (unit == '\0') {
        e_ringbell();
        return true;
    }
    take_back();
    type(unit);
    return true;
}

static void begin(int direction) {
    Finding = true;
    Taking_key = false;
    keep_newest();
    keep_line();
    Began = {editb.e_hline, editb.e_hloff};
    Step_count = 0;
    add_step({0, direction, Began.his_command, false, Result::found, {-1, 0}});
    backslash = 0;
    e_take_stop_keys(true);
}

static void end() {
    Finding = false;
    backslash = 0;
    kept.any = false;
    e_take_stop_keys(false);
    show_lead(nullptr, 0);
    const int len = newest_step().len;
    if (len > 0) string[bytes_from_units(string, kSearchSize - 1, Text, len)] = '\0';
}

static void put_back() {
    restore_line();
    editb.e_eol = text_len();
    editb.e_hline = Began.his_command;
    editb.e_hloff = Began.his_line;
    end();
}

static After give_back(Command &command) {
    put_back();
    command.i = editb.e_cur;
    return After::update;
}

// The line found is the line; as it was where none was.
static After accept(Command &command, After after) {
    finish_looking();
    if (newest_step().shown.his_command < 0) return give_back(command);
    put_line();
    end();
    command.i = editb.e_cur;
    return after;
}

After find_while_typed(Command &command) {
    begin(command.count > 0 ? -1 : 1);
    for (;;) {
        look_for_a_while();
        if (newest_step().result != Result::looking) show();
        const int key = take_key();
        const bool pasted = (key & kPasted) != 0;
        if (type_quoted(key)) continue;
        const int code = pasted ? key : code_of(key);
        if (code == ctrl('R')) {
            repeat(-1);
        } else if (code == ctrl('S') || code == kKeyDown) {
            repeat(1);
        } else if (code == CODE_ERASE) {
            take_back();
        } else if (code == CODE_KILL || code == ctrl('G')) {
            e_ringbell();
            return give_back(command);
        } else if (code == '\n') {
            return accept(command, After::drawline);
        } else if (!pasted && is_command(code)) {
            e_ungetkey(key);
            return accept(command, After::update);
        } else if (code >= kKeyBase && !pasted) {
            e_ringbell();  // it stands for nothing
        } else {
            type(static_cast<genchar>(key & ~kPasted));
            backslash = key == '\\' ? 1 : 0;
        }
    }
}

void find_abandon() {
    if (!Finding) return;
    put_back();
    if (e_row_stale == 0) return;
    draw(FINAL);
    e_flush();
}

}  // namespace emacs
