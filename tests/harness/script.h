// script.h: sessions of the whole program that are written down in tests/cases, for both editors.
// The settings of a section:
//
//     style, columns   of the session
//     prompt           of the program
//     program          the script that sh runs, or "actor echo". Without it a shell that reads
//                      lines, shows each as <line>, and does beside that what the steps ask for
//
// Each step waits for a state or makes one; a row counts from 0, a column too:
//
//     type KEYS            print BYTES (by the program)    run COMMANDS (by the program's shell)
//     row ROW TEXT         line ROW COLUMN TEXT (the row that the cursor is on, and morp asleep)
//     text TEXT            output BYTES                    editing TEXT (up to the cursor)
//     mode alt|raw|pass    asleep    suspend    fg    exit
//     recorded TEXT        unrecorded TEXT (in the history)
//
// A table is a list of waits: after `keys` the editor waits, with `shown` and the cursor in
// column `col` behind the prompt; then output arrives, twice, the second time with a longer prompt;
// then it goes on with `after` and a carriage return, and the program gets `line`.
#pragma once

#include "harness/cases.h"

namespace harness {

void check_sessions(const Section &section);

}  // namespace harness
