// script.h: sessions of the whole program that are written down in tests/cases/e2e_*.txt; the file
// format is that of cases.h. The steps of a section are taken in a session of its own, and again
// for each row of its table, each style and each mode; "$column" in a step or a setting stands for
// what the row, or the section, sets. The settings:
//
//     style            emacs (the rule), gmacs, vi; several words stand for one session each
//     extended         1: extended mode, in a locale of UTF-8
//     mode             the same: 1 with editing (the rule), 0 without
//     rows, columns    of the terminal
//     args             further options of morp
//     program          words: the program and its arguments
//     script, outer    run by sh, inside morp, or in place of morp, which is $MORP in it. Without
//                      any of the three a program shows each line as <line>, and the steps begin
//                      when it waits behind its
//     prompt           "> " if not set
//     times            how often the steps are taken
//     needs            a program without which the section is skipped
//
// Steps that make a state; " then " stands between steps on one line, and rows and columns count
// from 0:
//
//     type KEYS
//     paste FILE           of the home folder
//     spread KEYS          over the output, up to where it says "flooded"
//     send LINE            and a carriage return; waits for <LINE>
//     edit TEXT            the cursor then in front of its last character
//     print BYTES          on the program's terminal
//     stty SETTINGS        of that
//     resize ROWS COLUMNS    of the user's terminal
//     restore              that, to what it was before the start
//     hangup               takes it away
//     signal NAME          to morp
//     kill NAME            to the program
//     fg    bg             of a stopped job
//     talk KEYS | ROWS | COLUMN    types; the row of the cursor turns into ROWS, all others stay,
//                          and the cursor is at the end or in COLUMN
//     repeat N STEPS
//
// Steps that wait for a state:
//
//     editing TEXT         the row up to the cursor ends so, and a line can be typed
//     row ROW TEXT
//     line ROW COLUMN TEXT    that row, and the cursor in it, in COLUMN
//     shown COLUMN LINE    the screen is what was printed, and LINE behind it
//     text TEXT            on the screen
//     output BYTES         since the last step that made a state
//     never, once TEXT     in all that was written; "printed TEXT": is all that was written
//     mode NAME            of the terminal: original, pass, raw, alt; $own is that of the style
//     asleep               morp
//     idle N               and morp wakes up no more than N times in a while
//     late N STEP          and no earlier than N ms after the last step that made a state
//     silent               the program's terminal, which does not echo
//     size ROWS COLUMNS    that the user's terminal has
//     stopped NAME         by this signal
//     exit STATUS          0 if not given; "gone": no process is left
//     recorded, unrecorded TEXT    in the history
//     file NAME BYTES      in the home folder
//     keep FILE            puts all that was written there, and the screen into FILE.rows
//     run COMMAND          succeeds there, in a shell beside morp
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "harness/cases.h"
#include "harness/session.h"

namespace harness {

struct Script : Session {
    using Session::Session;
    std::size_t from = 0;  // how much had been written at the last step that acts
    std::chrono::steady_clock::time_point acted;  // when that was
    std::vector<std::string> rows = {""};         // the screen that a talk expects
};

// Steps of the caller's own: each is given the rest of its text.
using Verbs = std::map<std::string, std::function<void(std::istream &)>>;
// Takes the steps, `more` among them. Throws where one fails that waits.
void take(Script &s, const std::string &text, const Verbs &more = {});
// The bytes that the rest of a step stands for.
std::string rest(std::istream &in);

void check_sessions(const Section &section);

}  // namespace harness
