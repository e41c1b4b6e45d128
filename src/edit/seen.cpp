// seen.cpp: see seen.h. A ring of bytes that are looked at only when a word is completed, so that a
// flood of output pays for a copy and nothing else.
#include "edit/seen.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

static constexpr std::size_t kSize = 256UL * 1024;

// State of the whole run.
static bool Wanted = false;
static char Ring[kSize];
static std::size_t At = 0;  // where the next byte goes
static bool Full = false;   // the bytes from there on are the oldest
static bool Broken = false;

void seen_begin(bool wanted) {
    Wanted = wanted;
    At = 0;
    Full = Broken = false;
}

static void put(const char *data, std::size_t len) {
    while (len > 0) {
        const std::size_t n = std::min(len, kSize - At);
        std::memcpy(Ring + At, data, n);
        data += n;
        len -= n;
        At += n;
        if (At < kSize) continue;
        At = 0;
        Full = true;
    }
}

void seen_take(const char *data, int len) {
    if (!Wanted || len <= 0) return;
    if (Broken) put("\n", 1);
    Broken = false;
    put(data, static_cast<std::size_t>(len));
}

void seen_break() { Broken = true; }

SeenPieces seen_pieces() {
    const std::size_t older = Full ? kSize - At : 0;
    return {{{Ring + At, older}, {Ring, At}}};
}
