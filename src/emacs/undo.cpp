// undo.cpp: see undo.h. A step is a place and the changes made from there, a change what was taken
// out of the line and how much was put in. Changes that touch each other are one: what was put in
// by the same step, and taken out again, needs no keeping.
#include "emacs/undo.h"

#include <algorithm>

#include "emacs_internal.h"

namespace emacs {

struct UndoPlace {
    int cursor;
    histloc where;
};
struct UndoStep {
    UndoPlace before;
    int changes;
};
struct UndoChange {
    int at;
    int taken;  // units that stood there
    int put;    // units in their place
};

static constexpr int kMostTyped = 20;  // characters of one step
// Together 32 KiB. A whole line fits into the units.
static constexpr int kSteps = 512;
static constexpr int kChanges = 512;
static constexpr int kUnits = 4608;
static_assert(kSteps * sizeof(UndoStep) + kChanges * sizeof(UndoChange) +
                  kUnits * sizeof(genchar) <=
              32 * 1024);
static_assert(kUnits >= kLineUnits);

// State: chosen once a run.
static bool Following = false;

// State of the line: three stacks, the oldest step first in each.
static UndoStep Steps[kSteps];
static UndoChange Changes[kChanges];
static genchar Units[kUnits];  // what the changes have taken
static int Step_count = 0;
static int Change_count = 0;
static int Unit_count = 0;

// State of the step under way.
static UndoPlace Before;        // it
static bool Open = false;       // it has changed something, and is the newest of Steps
static bool Too_large = false;  // what it changes can't be kept
static int Typed = 0;           // characters that were typed in it, 0 when it is a command's
static int Paste = 0;           // the paste that they come from

static UndoPlace here() { return {editb.e_cur, {editb.e_hline, editb.e_hloff}}; }

// Takes the first `n` of `count` elements out.
template <class T>
static void drop_first(T *stack, int &count, int n) {
    std::move(stack + n, stack + count, stack);
    count -= n;
}

static void forget_oldest() {
    const int changes = Steps[0].changes;
    int units = 0;
    for (int i = 0; i < changes; i++) units += Changes[i].taken;
    drop_first(Steps, Step_count, 1);
    drop_first(Changes, Change_count, changes);
    drop_first(Units, Unit_count, units);
    if (Step_count == 0 && Open) {
        Open = false;
        Too_large = true;
    }
}

static void open_step() {
    if (Step_count == kSteps) forget_oldest();
    Steps[Step_count++] = {Before, 0};
    Open = true;
}

// The last change of the step, where one at `at` touches it.
static UndoChange *touched(int at) {
    if (Steps[Step_count - 1].changes == 0) return nullptr;
    UndoChange &last = Changes[Change_count - 1];
    return at >= last.at && at <= last.at + last.put ? &last : nullptr;
}

static void follow(int at, int taken, const genchar * /*units*/, int put) {
    if (Too_large) return;
    if (!Open) open_step();
    const bool joins = touched(at) != nullptr;
    const int own = joins ? std::min(taken, touched(at)->at + touched(at)->put - at) : 0;
    const int fresh = taken - own;
    while (Open && (Unit_count + fresh > kUnits || (!joins && Change_count == kChanges)))
        forget_oldest();
    if (!Open) return;

    std::copy_n(editb.e_inbuf + at + own, fresh, Units + Unit_count);
    Unit_count += fresh;
    if (UndoChange *const last = touched(at); joins) {
        last->taken += fresh;
        last->put += put - own;
        return;
    }
    Changes[Change_count++] = {at, taken, put};
    Steps[Step_count - 1].changes++;
}

void undo_begin(bool extended) { Following = extended; }

void undo_line() {
    Step_count = Change_count = Unit_count = 0;
    Typed = Paste = 0;
    Open = Too_large = false;
    Before = here();
    Text_watch = Following ? follow : nullptr;
}

// Whether the step under way has left everything as it was, as a search given up does.
static bool changed_nothing() {
    const UndoStep &step = Steps[Step_count - 1];
    const histloc &where = step.before.where;
    if (where.his_command != editb.e_hline || where.his_line != editb.e_hloff) return false;
    if (step.changes != 1) return false;
    const UndoChange &change = Changes[Change_count - 1];
    return change.taken == change.put && std::equal(Units + Unit_count - change.taken,
                                                    Units + Unit_count, editb.e_inbuf + change.at);
}

void undo_command() {
    if (Open && changed_nothing()) {
        Step_count--;
        Unit_count -= Changes[--Change_count].taken;
    }
    Before = here();
    Open = Too_large = false;
    Typed = 0;
}

void undo_typing(int paste) {
    const bool goes_on = Typed > 0 && paste == Paste && (paste != 0 || Typed < kMostTyped);
    if (!goes_on) undo_command();
    Typed++;
    Paste = paste;
}

bool undo_step() {
    if (Step_count == 0) return false;
    const UndoStep &step = Steps[--Step_count];
    Text_watch = nullptr;
    for (int i = 0; i < step.changes; i++) {
        const UndoChange &change = Changes[--Change_count];
        Unit_count -= change.taken;
        text_take(change.at, change.put);
        (void)text_put(change.at, Units + Unit_count, change.taken);  // it was there before
    }
    Text_watch = follow;
    editb.e_cur = step.before.cursor;
    editb.e_eol = text_len();
    editb.e_hline = step.before.where.his_command;
    editb.e_hloff = step.before.where.his_line;
    Open = false;
    return true;
}

}  // namespace emacs
