// host.h: what the editors ask of whoever runs them, the mirror of EditView. The pass-through is
// the host of the program morp; a test, a benchmark or a fuzz target brings its own.
#pragma once

#include "morp_defs.h"

// How a wait for a key ended.
enum class KeyWait { ready, interrupted, taken, late };

struct EditHost {
    // The editor's wait: sleeps until the keyboard can be read. Program output is relayed
    // meanwhile, with the editor stepping off its row and coming back (e_view). `ready`: read now.
    // `interrupted`: progdone is set. `taken`: the program left line input, the edit has to end.
    // `late`: no key has come for `timeout_ns` (kNoTimeout: waits as long as it takes).
    KeyWait (*wait_key)(long timeout_ns);
    // In a paste the next key is there already: there is nothing to wait for and nothing to show
    // yet. True when a read of the keyboard may be tried without a wait.
    bool (*look_for_key)();
    // Opens the working directory of the program that is in the foreground, where file names that
    // the user types are looked up: a descriptor for openat, or -1. Null: it is morp's own.
    int (*open_folder)() = nullptr;
    // The first of the `n` units of a line that can't be given to the program, which gets none of
    // it then; -1 where all can. Null: all can.
    int (*refused)(const genchar *units, int n) = nullptr;
};
// Set before the first line is read.
extern const EditHost *e_host;
