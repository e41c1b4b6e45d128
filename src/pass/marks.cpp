// marks.cpp: see marks.h. The mode is switched by a sequence that moves nothing, between two
// sequences of the program's and never within one. What the terminal does follows from what was
// written to it last, by morp or by the program.
#include "marks.h"

#include "edit.h"
#include "edit/decode.h"
#include "edit/prompt.h"
#include "run.h"
#include "tty.h"
#include "wait.h"

static constexpr char kMarksOn[] = "\033[?2004h";
static constexpr char kMarksOff[] = "\033[?2004l";
static constexpr std::size_t kLength = sizeof kMarksOn - 1;
static_assert(sizeof kMarksOff - 1 == kLength);

// State of the whole run.
static bool Wanted = false;
static bool Marking = false;             // the terminal sends marks, as far as is known
static unsigned long Switches_seen = 0;  // of the program's own, see follow.cpp

static void see_programs_own() {
    if (Switches_seen == program_paste_switches()) return;
    Switches_seen = program_paste_switches();
    Marking = program_paste_mode();
}

void marks_assert(bool editing) {
    if (!Wanted) return;
    see_programs_own();
    const bool marking = editing || program_paste_mode();
    if (marking == Marking || out_row_in_sequence() || tty_in_background()) return;
    // A signal may end the process in the middle of the write: off is written once too often
    // rather than never.
    if (marking) Marking = true;
    e_write(marking ? kMarksOn : kMarksOff, kLength);
    e_flush();
    Marking = marking;
}

// The sequence that leaves the mode to the program, null where that is so already.
static const char *leaving() {
    if (!Wanted) return nullptr;
    see_programs_own();
    if (Marking == program_paste_mode()) return nullptr;
    return Marking ? kMarksOff : kMarksOn;
}

void marks_leave() {
    const char *const sequence = leaving();
    if (sequence != nullptr) (void)screen_write_now(Screen::editor, sequence, kLength);
    Marking = false;  // whoever has the terminal meanwhile may switch it
}

static void marks_end() {
    const char *const sequence = leaving();
    // A screen that is gone is nobody's any more.
    if (sequence != nullptr) (void)screen_write(Screen::editor, sequence, kLength);
    Marking = program_paste_mode();
}

void marks_begin(bool wanted) {
    Wanted = wanted;
    Before_end = wanted ? marks_end : nullptr;
}

// A paste that an editor has begun to read lost its first mark there: the last one goes as well.
int marks_take_out(char *keys, int len) {
    const bool told = program_paste_mode() && !decode_in_paste();
    return Wanted && !told ? decode_passed_keys(keys, len) : len;
}
