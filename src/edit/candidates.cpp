// candidates.cpp: see candidates.h. A folder may hold hundreds of thousands of names: of each no
// more is decoded than what the others share, and the text of a bounded number is kept.
#include "edit/candidates.h"

#include <algorithm>
#include <cstdint>

#include "edit/chars.h"
#include "wait.h"

namespace complete {

static constexpr long kTime = 90 * kMillisecond;  // the user waits 100 ms at most
static constexpr std::size_t kPoolSize = 128UL * 1024;
static constexpr std::size_t kHashes = 64UL * 1024;

// State of one completion.
static long long End_ns = 0;
static genchar Word[kMostBytes];
static int Word_len = 0;
static genchar Shared[kMostBytes];
static int Shared_len = 0;
static int Found = 0;

// What is kept, text in a pool. Once one has been dropped, none behind Last is kept.
static char Pools[2][kPoolSize];
static char *Pool = Pools[0];
static std::size_t Pool_len = 0;
static std::string_view Kept[kMostKept];
static int Kept_count = 0;
static std::string_view Last;  // empty: none was dropped

// The different ones; 0 is a free place.
static bool Repeated = false;
static std::uint64_t Hashes[kHashes];
static std::size_t Hashes_used = 0;

void time_begin() { End_ns = now_ns() + kTime; }

bool late() { return now_ns() > End_ns; }

void candidates_begin(const genchar *word, int n, bool repeated) {
    Word_len = n;  // what is longer than any candidate has none
    std::copy_n(word, std::min(n, kMostBytes), Word);
    Shared_len = Found = Kept_count = 0;
    Pool_len = 0;
    Last = {};
    Repeated = repeated;
    if (Hashes_used > 0) std::fill_n(Hashes, kHashes, 0);
    Hashes_used = 0;
}

// Most of what is offered is none, which its first byte tells.
static bool may_begin(char c) {
    if (Word_len == 0 || Word[0] >= 128 || byte_of(c) >= 128) return true;
    return unit_stands_for(Word[0], static_cast<genchar>(c));
}

// At most the first `most` units.
static int units_of(std::string_view text, genchar *dst, int most) {
    const int len = static_cast<int>(text.size());
    int n = 0;
    for (; n < std::min(len, most); n++) {
        if (byte_of(text[static_cast<std::size_t>(n)]) >= 128)
            return units_from_bytes(dst, most, text.data(), len);
        dst[n] = static_cast<genchar>(text[static_cast<std::size_t>(n)]);
    }
    return n;
}

static void share(const genchar *units, int n) {
    if (Found == 0) {
        Shared_len = n;
        std::copy_n(units, n, Shared);
        return;
    }
    int same = 0;
    for (; same < std::min(n, Shared_len); same++) {
        if (Shared[same] == units[same]) continue;
        const genchar lower = unit_to_lower(units[same]);
        if (lower != unit_to_lower(Shared[same])) break;
        Shared[same] = lower;
    }
    Shared_len = same;
}

// FNV-1a; never 0.
static std::uint64_t hash_of(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return hash | 1;
}

static bool is_new(std::string_view text) {
    const std::uint64_t hash = hash_of(text);
    std::size_t at = hash % kHashes;
    for (; Hashes[at] != 0; at = (at + 1) % kHashes)
        if (Hashes[at] == hash) return false;
    if (Hashes_used >= kHashes / 4 * 3) return false;
    Hashes[at] = hash;
    Hashes_used++;
    return true;
}

static void store(std::string_view text) {
    std::copy(text.begin(), text.end(), Pool + Pool_len);
    Kept[Kept_count++] = {Pool + Pool_len, text.size()};
    Pool_len += text.size();
}

// Drops the second half.
static void make_room() {
    const std::string_view *first = nullptr;
    const int half = candidates_sorted(&first) / 2;
    Pool = Pool == Pools[0] ? Pools[1] : Pools[0];
    Pool_len = 0;
    Kept_count = 0;
    for (int i = 0; i < half; i++) store(first[i]);
    Last = Kept[Kept_count - 1];
}

static void keep(std::string_view text) {
    if (!Last.empty() && text > Last) return;
    if (Kept_count == kMostKept || kPoolSize - Pool_len < text.size()) {
        make_room();
        if (text > Last) return;
    }
    store(text);
}

bool candidates_offer(std::string_view text, int least) {
    if (text.empty() || text.size() > kMostBytes || !may_begin(text[0])) return false;
    genchar units[kMostBytes];
    const int needed = std::max(Word_len, least);
    const int looked_at = Found == 0 ? kMostBytes : std::max(needed, Shared_len);
    const int n = units_of(text, units, looked_at);
    if (n < needed || !std::equal(Word, Word + Word_len, units, unit_stands_for)) return false;
    share(units, n);
    if (Repeated && !is_new(text)) return true;
    Found++;
    keep(text);
    return true;
}

int candidates_found() { return Found; }

Units candidates_shared() { return {Shared, Shared_len}; }

int candidates_sorted(const std::string_view **first) {
    std::sort(Kept, Kept + Kept_count);
    *first = Kept;
    return Kept_count;
}

}  // namespace complete
