// edit_wait.h: the editors' wait.
#pragma once

#include "edit/host.h"

// Chooses, for the whole run, whether a line is drawn anew when the terminal gets another width.
void edit_wait_begin(bool extended);
// What the editors ask of their host (EditHost).
KeyWait pass_wait_key(long timeout_ns);
bool pass_look_for_key();
// A wait has just found keys: see pass_look_for_key.
void pass_keys_seen();
// Program output is about to be written to the screen: a line being edited steps aside.
void pass_before_output();
