// complete.h: the completion of the word before the cursor, which a TAB asks for. Candidates come,
// the first source that has any, from files of words (Q_VXWORDS), names of files, words of the
// history and of what the program has printed. No program is run for them, and after 100 ms those
// found by then count.
//
// The editors bind the key, and put into the line what goes in.
#pragma once

#include "morp_defs.h"

// Words are completed in this run, and for that the program's output is kept; or TAB is a TAB. To
// be called at start.
void complete_begin(bool wanted);

enum class Tab {
    text,     // the key is a TAB
    replace,  // the units of the line from `from` to the TAB give way to the `n` units at `unit`:
              // the word to what it goes on as, a backslash to a TAB
    done,     // nothing goes in: the bell was rung, or the candidates were shown
};
struct Completion {
    Tab tab;
    int from;
    const genchar *unit;  // valid until the next key
    int n;                // never less than the units that give way
};
// What a TAB typed at index `at` of the line comes to; `room`: units by which the line may grow. A
// TAB is text behind nothing but blanks, and with more keys waiting behind it. A second one in a
// row with nothing that could go in shows the candidates above the line: by e_view, so that the
// caller must not hold what come_back may change.
Completion complete_at(int at, int room);
