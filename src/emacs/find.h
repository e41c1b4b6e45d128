// find.h: the search that follows its text while that is typed. Its row shows a word for the
// direction, the text and the newest match, the cursor where the text stands in it.
#pragma once

#include "emacs_internal.h"

namespace emacs {

// Searches until a key ends that. With a count of 0 towards newer commands.
After find_while_typed(Command &command);
// Before a wait for a key: finishes what was put off while keys were held.
void find_make_up();
// The edit ends in the middle of a wait: gives the line back as it was, also on the row where that
// still shows it.
void find_abandon();

}  // namespace emacs
