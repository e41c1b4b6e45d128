// candidates.h: what the sources of a completion have found: the candidates, which begin with the
// word before the cursor, what they share, and the first ones in order. Room and time are bounded:
// a candidate for which there is no room counts, and a source stops once it is late.
#pragma once

#include <string_view>

#include "morp_defs.h"

namespace complete {

// Most bytes of a candidate; what is longer is none.
inline constexpr int kMostBytes = 255;
// Most candidates that are kept to be shown.
inline constexpr int kMostKept = 4096;

// The time for a completion begins, and is over.
void time_begin();
bool late();

// Begins without candidates; from now on they have to begin with the `n` units at `word`, where a
// lower-case letter stands for both cases. `repeated`: the same one may be offered again, which
// doesn't count; of more than 49,000 different ones the rest isn't counted then.
void candidates_begin(const genchar *word, int n, bool repeated);
// Takes `text` where it is a candidate and has `least` units at least. Returns whether it has.
bool candidates_offer(std::string_view text, int least);
// How many different ones there are.
int candidates_found();
// The units that all share, at least those of the word: where they differ in case alone, the
// lower-case letter. Valid until the next candidate.
struct Units {
    const genchar *unit;
    int len;
};
Units candidates_shared();
// Sorts what is kept, the first candidates in the order of their bytes. Returns how many they are,
// and through `first` the first of them; valid until the next candidate.
int candidates_sorted(const std::string_view **first);

}  // namespace complete
