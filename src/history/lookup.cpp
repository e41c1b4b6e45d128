// lookup.cpp: copying, locating and searching the commands in reach. The text is read from the file
// each time, through the ring of command starts; nothing is allocated.

#include <algorithm>
#include <cstring>

#include "extended.h"
#include "history/history_internal.h"
#include "history/needle.h"
#include "morp_defs.h"

namespace history {

// The number of bytes from the start of command `first` to the end of `last`: text, NUL and
// whatever else stands in front of the next command (padding, sync records, commands withdrawn).
static FileOffset span_of(int first, int last) { return ring_start(last + 1) - ring_start(first); }

// Text is kept of commands the ring holds. The line being edited, fixind, has none yet.
static bool has_text(int n) { return n >= ring_low() && n < fc_fix->fixind; }

// --- Copying ---

// One copy under way: takes the bytes of the command one by one.
struct Copy {
    char *to;
    int line;
    int count = 0;  // newlines passed
    int stored = 0;
    bool cut = false;

    // False when the copy is complete.
    bool take(char c) {
        if (c == '\n') {
            if (count++ == line) return false;
            if (line >= 0) return true;
        }
        if (to == nullptr || (line >= 0 && count != line)) return true;
        if (stored == Limits.copy) {
            cut = true;
            return false;
        }
        to[stored++] = c;
        return true;
    }
    void finish() {
        if (to == nullptr) return;
        // The last place is for the NUL, whether or not more was to come.
        if (!cut && stored > 0 && to[stored - 1] == '\n') stored--;
        to[std::min(stored, Limits.copy - 1)] = '\0';
    }
};

// Hands the text of command `n` to `copy`.
static void copy_text(int n, Copy &copy) {
    const FileOffset end = ring_start(n + 1);
    for (FileOffset pos = ring_start(n); pos < end;) {
        const std::size_t got = read_at(pos, Block, piece_of(end - pos));
        for (std::size_t i = 0; i < got; i++)
            if (Block[i] == 0 || !copy.take(static_cast<char>(Block[i]))) return;
        if (got == 0) return;
        pos += static_cast<FileOffset>(got);
    }
}

// --- Searching ---

// Command -1 means no match. `end` is the file offset behind the matched text.
struct Match {
    int command;
    FileOffset end;
};
static constexpr Match kNoMatch = {-1, 0};

// Last command in [`first`, `last`] that starts at or before the file offset `at`.
static int command_at(FileOffset at, int first, int last) {
    while (first < last) {
        const int middle = last - (last - first) / 2;
        if (ring_start(middle) <= at)
            first = middle;
        else
            last = middle - 1;
    }
    return first;
}

// Finds the needle at the start of a command; Block holds the commands `first` to `last`.
static Match match_starts(const Needle &needle, int first, int last, std::size_t size, int step) {
    const FileOffset base = ring_start(first);
    for (int n = step > 0 ? first : last; n >= first && n <= last; n += step) {
        const auto at = static_cast<std::size_t>(ring_start(n) - base);
        if (at < size && size - at >= needle.length &&
            std::memcmp(Block + at, needle.text, needle.length) == 0)
            return {n, ring_start(n) + static_cast<FileOffset>(needle.length)};
    }
    return kNoMatch;
}

// Finds the needle anywhere in the text of a command; Block holds the commands `first` to `last`.
// Towards older commands the block is gone through in the same way, and the last match counts.
static Match match_inside(const Needle &needle, int first, int last, std::size_t size, int step) {
    const FileOffset base = ring_start(first);
    Match found = kNoMatch;
    for (std::size_t from = 0; from < size;) {
        const Hit hit = needle_find(needle, Block + from, size - from);
        if (hit.at == nullptr) break;
        const auto at = static_cast<std::size_t>(hit.at - Block);
        const int n = command_at(base + static_cast<FileOffset>(at), first, last);
        const auto start = static_cast<std::size_t>(ring_start(n) - base);
        // Behind a NUL it is no longer the command's text.
        if (std::memchr(Block + start, 0, at - start) == nullptr) {
            found = {n, base + static_cast<FileOffset>(at + hit.length)};
            if (step > 0) break;
        }
        if (n == last) break;
        from = static_cast<std::size_t>(ring_start(n + 1) - base);
    }
    return found;
}

// The same for one command that doesn't fit into a block.
static Match match_long(const Needle &needle, int n) {
    const FileOffset end = ring_start(n + 1);
    for (FileOffset pos = ring_start(n); pos < end;) {
        const std::size_t want = piece_of(end - pos);
        const std::size_t got = read_at(pos, Block, want);
        const void *nul = std::memchr(Block, 0, got);
        const std::size_t text =
            nul != nullptr
                ? static_cast<std::size_t>(static_cast<const unsigned char *>(nul) - Block)
                : got;
        needle_see_block(text);
        const Hit hit = needle_find(needle, Block, text);
        if (hit.at != nullptr) {
            const FileOffset at = hit.at - Block;
            if (!needle.anywhere && at != 0) return kNoMatch;
            return {n, pos + at + static_cast<FileOffset>(hit.length)};
        }
        if (!needle.anywhere || nul != nullptr || got < kBlock) return kNoMatch;
        pos += static_cast<FileOffset>(kBlock - (needle.most - 1));
    }
    return kNoMatch;
}

// Commands, all of which have text; none when `low` is above `high`.
struct Range {
    int low;
    int high;
};

// Searches the commands of `range`; the first match in the direction `step` (1 or -1) counts. When
// about `most` bytes have been looked at, the commands that are left stay in `range`.
static Match match_range(const Needle &needle, Range &range, int step, FileOffset most) {
    static constexpr FileOffset kMostRoom = kBlock;
    int &low = range.low;
    int &high = range.high;
    // Most searches end within the first few commands.
    for (FileOffset room = kMostRoom / 16; low <= high && most > 0;
         room = std::min(2 * room, kMostRoom)) {
        // As many commands as there is room for, one at least.
        int first = low;
        int last = high;
        if (step > 0)
            last = command_at(ring_start(low) + room, low, high + 1) - 1;
        else
            first = command_at(ring_start(high + 1) - room - 1, low - 1, high) + 1;
        first = std::min(first, high);
        last = std::max(last, low);
        most -= span_of(first, last);
        Match match;
        if (span_of(first, last) > kMostRoom) {
            match = match_long(needle, first);
        } else {
            const std::size_t size =
                read_at(ring_start(first), Block, static_cast<std::size_t>(span_of(first, last)));
            needle_see_block(size);
            match = needle.anywhere ? match_inside(needle, first, last, size, step)
                                    : match_starts(needle, first, last, size, step);
        }
        if (match.command >= 0) return match;
        if (step > 0)
            low = last + 1;
        else
            high = first - 1;
    }
    return kNoMatch;
}

static int count_newlines(FileOffset from, FileOffset to) {
    std::int64_t count = 0;
    while (from < to) {
        const std::size_t got = read_at(from, Block, piece_of(to - from));
        if (got == 0) break;
        count += std::count(Block, Block + got, '\n');
        from += static_cast<FileOffset>(got);
    }
    return static_cast<int>(std::min<std::int64_t>(count, INT_MAX));
}

}  // namespace history

static constexpr histloc kNone = {-1, 0};

// Finds the needle beyond command `from`. When it has looked at about `most` bytes in vain, `from`
// is the command looked at last and the result's command kHistGoesOn.
static histloc find_from(const history::Needle &needle, int &from, int step, FileOffset most) {
    const int bound = step > 0 ? fc_fix->fixind : std::max(fc_fix->fixind - fc_fix->fixmax, 1);
    if (step > 0 ? from >= bound : from <= bound) return kNone;
    // Nothing is found in every command, also in one without text.
    if (needle.length == 0) return {from + step, 0};
    if (needle.most == 0) return kNone;

    history::Range range = {std::max(step > 0 ? from + 1 : bound, history::ring_low()),
                            std::min(step > 0 ? bound : from - 1, fc_fix->fixind - 1)};
    const history::Match match = history::match_range(needle, range, step, most);
    if (match.command < 0) {
        if (range.low > range.high) return kNone;
        from = step > 0 ? range.low - 1 : range.high + 1;
        return {kHistGoesOn, 0};
    }
    return {match.command, history::count_newlines(history::ring_start(match.command), match.end)};
}

histloc hist_find(const char *string, int index1, int flag, int direction) {
    if (fc_fix == nullptr) return kNone;
    const history::Needle needle = history::needle_of(string, flag != 0);
    return find_from(needle, index1, direction > 0 ? 1 : -1, LONG_MAX);
}

histloc hist_find_part(const char *string, int *index1, int direction) {
    static constexpr FileOffset kPart = 4 * 1024 * 1024;
    if (fc_fix == nullptr) return kNone;
    const history::Needle needle = history::needle_of(string, true);
    return find_from(needle, *index1, direction > 0 ? 1 : -1, kPart);
}

// NOLINTNEXTLINE(readability-non-const-parameter): the copy is stored through it
int hist_copy(char *s1, int command, int line) {
    if (fc_fix == nullptr) return -1;
    history::Copy copy = {s1, line};
    if (history::has_text(command)) history::copy_text(command, copy);
    copy.finish();
    return copy.count;
}

char *hist_word(char *s1, int word) {
    if (fc_fix == nullptr) return nullptr;
    (void)hist_copy(s1, fc_fix->fixind - 1, -1);
    char *result = s1;
    bool inside = false;
    std::int64_t left = word;
    char *p = s1;
    for (; *p != '\0'; p++) {
        if (is_blank(byte_of(*p))) {
            if (!inside) continue;
            *p = '\0';
            if (--left == 0) break;
            inside = false;
        } else if (!inside) {
            result = p;
            inside = true;
        }
    }
    *p = '\0';
    return result;
}

histloc hist_locate(int command, int line, int lines) {
    if (fc_fix == nullptr) return {-1, 0};
    std::int64_t target = static_cast<std::int64_t>(line) + lines;
    if (lines > 0) {
        // Numbers without text have no lines: they are passed at once.
        command = std::max(command, std::min(history::ring_low(), fc_fix->fixind));
        for (; command <= fc_fix->fixind; command++) {
            const int count = hist_copy(nullptr, command, -1);
            if (count > target) return {command, static_cast<std::int32_t>(target)};
            target -= count;
        }
        return {fc_fix->fixind + 1, 0};
    }
    const int least = std::max(fc_fix->fixind - fc_fix->fixmax, history::ring_low());
    while (target < 0) {
        if (command <= least) return {-1, 0};
        command--;
        target += hist_copy(nullptr, command, -1);
    }
    return {command, static_cast<std::int32_t>(target)};
}
