// kills.h: what was deleted, to be put in again. In extended mode the last kills live on from line
// to line, and those that follow each other directly are one; else there is the last deletion
// alone, which is forgotten with its line. editb.e_tmp is the newest one.
#pragma once

#include "edit/text.h"

namespace emacs {

inline constexpr int kMostKills = 8;

// Chooses, once a run, whether kills live on.
void kills_begin(bool extended);
// A line begins.
void kills_line();

// Units [from, to) of the line are about to be deleted, with the cursor at `at` among them or at
// one of their ends: what is before it goes in front of the kill that this one follows, the rest
// behind it. Nothing at all leaves the kills as they are, unless they don't live on.
void kills_keep(int from, int at, int to);
// Units [from, to) stay in the line, and are a kill of their own.
void kills_copy(int from, int to);

// editb.e_tmp was put in.
void kills_yanked();
// Behind a command that has put a kill in, or has asked here: the one before that, the newest
// before the oldest. Null where no such command went before, or there is no other.
const TextCopy *kills_before();

void kills_reset_for_test();

}  // namespace emacs
