// each.cpp: the text of all commands in reach, read in blocks as for a search.
#include <algorithm>
#include <cstring>

#include "history/history_internal.h"

namespace history {

// The first of the commands up to `last` that one block holds with it, at least `last` itself.
static int first_in_block(int low, int last) {
    const FileOffset end = ring_start(last + 1);
    int first = last;
    while (first > low && end - ring_start(first - 1) <= static_cast<FileOffset>(kBlock)) first--;
    return first;
}

// Hands over the text of command `n`; Block holds `size` bytes, from offset `base` on.
static bool hand_over(int n, FileOffset base, std::size_t size,
                      bool (*take)(std::string_view command)) {
    const auto from = static_cast<std::size_t>(ring_start(n) - base);
    const auto to = std::min(size, piece_of(ring_start(n + 1) - base));
    if (from >= to) return true;
    const unsigned char *const text = Block + from;
    const void *nul = std::memchr(text, 0, to - from);
    const std::size_t len =
        nul == nullptr ? to - from
                       : static_cast<std::size_t>(static_cast<const unsigned char *>(nul) - text);
    return take({reinterpret_cast<const char *>(text), len});
}

}  // namespace history

void hist_each(bool (*take)(std::string_view command)) {
    using namespace history;
    if (fc_fix == nullptr) return;
    const int low = std::max({fc_fix->fixind - fc_fix->fixmax, ring_low(), 1});
    for (int last = fc_fix->fixind - 1; last >= low;) {
        const int first = first_in_block(low, last);
        const FileOffset base = ring_start(first);
        const std::size_t size = read_at(base, Block, piece_of(ring_start(last + 1) - base));
        for (; last >= first; last--)
            if (!hand_over(last, base, size, take)) return;
    }
}
