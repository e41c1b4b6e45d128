// seen.h: what the program has printed in this run, of which the last 256 KiB are kept: words in it
// can be completed. Whoever relays output hands it over, but for what was printed while the
// program's terminal didn't echo.
#pragma once

#include <string_view>

// Output is kept from now on, or not at all. Nothing is kept before the first call.
void seen_begin(bool wanted);
// Takes `len` bytes of output: one copy, whatever they are.
void seen_take(const char *data, int len);
// Output has been left out here: what comes next doesn't go on with the word before.
void seen_break();
// All that is kept, in two pieces, the older one first. Where older output was dropped it may begin
// within a word.
struct SeenPieces {
    std::string_view piece[2];
};
SeenPieces seen_pieces();
