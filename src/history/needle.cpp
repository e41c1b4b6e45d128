// needle.cpp: see needle.h. Bytes are compared as they are, or, where a search is told so, a
// lower-case letter of the text stands for both cases. Then the text is a row of pieces, characters
// with one or two looks. A stretch of them, the anchor, is looked for as quickly as bytes are:
// either as it is, or, of ASCII, in a copy of the block in lower case. Around a hit the other
// pieces are compared.
#include "history/needle.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <iterator>

#include "history/history_internal.h"
#include "morp_defs.h"

namespace history {

// One character of the text: its bytes, and those of its upper case.
struct Piece {
    std::uint16_t at;  // in the text
    std::uint16_t length;
    std::uint16_t other_at;      // in Others
    std::uint16_t other_length;  // 0: it stands for itself alone
};

enum class Anchor {
    bytes,   // of the text as they are
    folded,  // in lower case
    letter,  // the first piece, in either case
};

static constexpr std::size_t kMostText = kLineBuffer;

// State: chosen once a run.
static bool Either_case = false;

// State of one search. Without pieces the text is bytes.
static Piece Pieces[kMostText];
static int Piece_count = 0;
static unsigned char Others[2 * kMostText];
static Anchor Kind = Anchor::bytes;
static int Anchor_first = 0;  // pieces of the anchor
static int Anchor_count = 0;
static char Anchor_text[kMostText];
static std::size_t Anchor_length = 0;

// State: the block in lower case, made when it is needed.
static unsigned char Folded[kBlock];
static std::size_t Block_size = 0;
static bool Is_folded = false;

// --- Bytes ---

// Bytes too frequent in commands to look for them alone: so are the first ones of characters that
// take several.
static bool is_frequent(char c) {
    return byte_of(c) >= 0xc0 || std::strchr("etaoinsrlcdpmu -./", c) != nullptr;
}

// memmem is slow with two bytes: memchr for the rarer of them takes a fraction of the time.
static const unsigned char *find_pair(const unsigned char *data, std::size_t size,
                                      const char *text) {
    const std::size_t rare = is_frequent(text[0]) && !is_frequent(text[1]) ? 1 : 0;
    const std::size_t other = 1 - rare;
    for (std::size_t i = rare; i < size;) {
        const void *hit = std::memchr(data + i, text[rare], size - i);
        if (hit == nullptr) break;
        const auto at = static_cast<std::size_t>(static_cast<const unsigned char *>(hit) - data);
        if (at - rare + 1 < size && data[at - rare + other] == byte_of(text[other]))
            return data + at - rare;
        i = at + 1;
    }
    return nullptr;
}

static const unsigned char *find_bytes(const unsigned char *data, std::size_t size,
                                       const char *text, std::size_t length) {
    if (length == 2) return find_pair(data, size, text);
    return static_cast<const unsigned char *>(memmem(data, size, text, length));
}

// --- The text in pieces ---

static bool is_lower(char c) { return c >= 'a' && c <= 'z'; }
static bool is_upper(char c) { return c >= 'A' && c <= 'Z'; }

static unsigned char folded(unsigned char c) {
    const bool upper = static_cast<unsigned char>(c - 'A') < 26;
    return static_cast<unsigned char>(c + (upper ? 'a' - 'A' : 0));
}

// The character at `text`, which ends behind `left` bytes; what doesn't decode is a byte. Stores
// its upper case in `other` (MB_LEN_MAX), where that is another one. Returns the bytes of both.
struct Looks {
    std::size_t length;
    std::size_t other_length;
};
static Looks looks_of(const char *text, std::size_t left, char *other) {
    if (byte_of(*text) < 128) {
        *other = static_cast<char>(*text - ('a' - 'A'));
        return {1, is_lower(*text) ? std::size_t{1} : 0};
    }
    std::mbstate_t state = {};
    wchar_t wide = 0;
    const std::size_t length = mbrtowc(&wide, text, left, &state);
    if (length == 0 || length > left) return {1, 0};
    const auto upper = static_cast<wchar_t>(towupper(static_cast<wint_t>(wide)));
    if (upper == wide || iswlower(static_cast<wint_t>(wide)) == 0) return {length, 0};
    state = {};
    const std::size_t n = wcrtomb(other, upper, &state);
    return {length, n <= MB_LEN_MAX ? n : 0};
}

// Returns the bytes that all pieces may have together.
static std::size_t cut_into_pieces(const char *text, std::size_t length) {
    std::size_t most = 0;
    std::size_t others = 0;
    Piece_count = 0;
    for (std::size_t at = 0; at < length;) {
        char other[MB_LEN_MAX];
        Looks looks = looks_of(text + at, length - at, other);
        if (looks.other_length > sizeof Others - others) looks.other_length = 0;
        std::memcpy(Others + others, other, looks.other_length);
        Pieces[Piece_count++] = {
            static_cast<std::uint16_t>(at), static_cast<std::uint16_t>(looks.length),
            static_cast<std::uint16_t>(others), static_cast<std::uint16_t>(looks.other_length)};
        others += looks.other_length;
        at += looks.length;
        most += std::max(looks.length, looks.other_length);
    }
    return most;
}

// --- The anchor ---

// How good bytes are to be looked for as they are. Capitals and what isn't ASCII are rare.
static int worth_of(const char *text, std::size_t length) {
    const bool rare =
        std::any_of(text, text + length, [](char c) { return is_upper(c) || byte_of(c) >= 128; });
    return static_cast<int>(length) + (rare ? 8 : 0);
}

// The stretch of pieces from `first` on that may be part of an anchor; where `fold`, lower-case
// letters of ASCII as well.
static int stretch_from(const char *text, int first, bool fold) {
    int end = first;
    while (end < Piece_count &&
           (Pieces[end].other_length == 0 || (fold && byte_of(text[Pieces[end].at]) < 128)))
        end++;
    return end;
}

// Makes the best stretch the anchor. Returns its worth.
static int choose_stretch(const char *text, bool fold) {
    int best = 0;
    Anchor_count = 0;
    for (int first = 0; first < Piece_count; first++) {
        const int end = stretch_from(text, first, fold);
        if (end == first) continue;
        const char *const start = text + Pieces[first].at;
        const std::size_t length =
            Pieces[end - 1].at + Pieces[end - 1].length - std::size_t{Pieces[first].at};
        const int worth = fold ? static_cast<int>(length) : worth_of(start, length);
        if (worth > best) {
            best = worth;
            Anchor_first = first;
            Anchor_count = end - first;
            Anchor_length = length;
            std::memcpy(Anchor_text, start, length);
        }
        first = end;
    }
    return best;
}

static void choose_anchor(const char *text) {
    constexpr int kGoodEnough = 4;
    Kind = Anchor::bytes;
    if (choose_stretch(text, false) >= kGoodEnough) return;
    if (Anchor_count == Piece_count) return;
    Kind = Anchor::folded;
    if (choose_stretch(text, true) > 0) {
        std::transform(Anchor_text, Anchor_text + Anchor_length, Anchor_text, [](char c) {
            return static_cast<char>(folded(static_cast<unsigned char>(c)));
        });
        return;
    }
    Kind = Anchor::letter;
    Anchor_first = 0;
    Anchor_count = 1;
}

static void fold_block() {
    if (Is_folded) return;
    Is_folded = true;
    // Of a fixed length, which compilers make many bytes at a time of.
    constexpr std::size_t kStep = 64;
    static_assert(kBlock % kStep == 0);
    for (std::size_t at = 0; at < Block_size; at += kStep)
        for (std::size_t i = 0; i < kStep; i++) Folded[at + i] = folded(Block[at + i]);
}

static std::size_t length_of(const Piece &piece, bool other) {
    return other ? piece.other_length : piece.length;
}

static const unsigned char *bytes_of(const Needle &needle, const Piece &piece, bool other) {
    return other ? Others + piece.other_at
                 : reinterpret_cast<const unsigned char *>(needle.text) + piece.at;
}

static const unsigned char *find_letter(const Needle &needle, const unsigned char *data,
                                        std::size_t size) {
    const Piece &piece = Pieces[0];
    // The last bytes of characters differ most.
    const unsigned char last = bytes_of(needle, piece, false)[piece.length - 1];
    const unsigned char other = bytes_of(needle, piece, true)[piece.other_length - 1];
    // Where no character begins so, which is soon seen, there is none.
    const unsigned char lead = bytes_of(needle, piece, false)[0];
    std::size_t i = 0;
    if (lead == bytes_of(needle, piece, true)[0]) {
        const void *first = std::memchr(data, lead, size);
        if (first == nullptr) return nullptr;
        i = static_cast<std::size_t>(static_cast<const unsigned char *>(first) - data);
    }
    for (; i < size; i++) {
        if (data[i] != last && data[i] != other) continue;
        for (const bool upper : {false, true}) {
            const std::size_t n = length_of(piece, upper);
            if (n <= i + 1 && std::memcmp(data + i + 1 - n, bytes_of(needle, piece, upper), n) == 0)
                return data + i + 1 - n;
        }
    }
    return nullptr;
}

static const unsigned char *find_anchor(const Needle &needle, const unsigned char *data,
                                        std::size_t size) {
    if (Kind == Anchor::letter) return find_letter(needle, data, size);
    if (Kind == Anchor::bytes) return find_bytes(data, size, Anchor_text, Anchor_length);
    fold_block();
    const unsigned char *hit =
        find_bytes(Folded + (data - Block), size, Anchor_text, Anchor_length);
    return hit != nullptr ? Block + (hit - Folded) : nullptr;
}

// --- Around the anchor ---

// The bytes of `piece` that end, or else begin, `data`; 0 where it is not there.
static std::size_t found_piece(const Needle &needle, const Piece &piece, const unsigned char *data,
                               std::size_t size, bool at_end) {
    for (const bool other : {false, true}) {
        const std::size_t n = length_of(piece, other);
        if (n == 0 || n > size) continue;
        const unsigned char *const place = at_end ? data + size - n : data;
        if (std::memcmp(place, bytes_of(needle, piece, other), n) == 0) return n;
    }
    return 0;
}

// The needle around the anchor found at `anchor`.
static Hit around(const Needle &needle, const unsigned char *data, std::size_t size,
                  const unsigned char *anchor) {
    const unsigned char *first = anchor;
    const unsigned char *const end = data + size;
    for (int i = Anchor_first - 1; i >= 0; i--) {
        const auto before = static_cast<std::size_t>(first - data);
        const std::size_t n = found_piece(needle, Pieces[i], data, before, true);
        if (n == 0) return {nullptr, 0};
        first -= n;
    }
    const unsigned char *behind = anchor;
    for (int i = Anchor_first; i < Piece_count; i++) {
        const auto left = static_cast<std::size_t>(end - behind);
        const std::size_t n = found_piece(needle, Pieces[i], behind, left, false);
        if (n == 0) return {nullptr, 0};
        behind += n;
    }
    return {first, static_cast<std::size_t>(behind - first)};
}

Needle needle_of(const char *text, bool anywhere) {
    const std::size_t length = std::strlen(text);
    Piece_count = 0;
    Is_folded = false;
    // Longer than what is read at a time is longer than any command that can be typed.
    if (!Either_case || !anywhere) return {text, length, anywhere, length < kBlock ? length : 0};
    if (length > kMostText) return {text, length, anywhere, 0};
    const std::size_t most = cut_into_pieces(text, length);
    choose_anchor(text);
    return {text, length, anywhere, most};
}

void needle_see_block(std::size_t size) {
    Block_size = size;
    Is_folded = false;
}

Hit needle_find(const Needle &needle, const unsigned char *data, std::size_t size) {
    if (Piece_count == 0) {
        const unsigned char *hit = find_bytes(data, size, needle.text, needle.length);
        return {hit, needle.length};
    }
    for (std::size_t from = 0; from < size;) {
        const unsigned char *anchor = find_anchor(needle, data + from, size - from);
        if (anchor == nullptr) break;
        const Hit hit = around(needle, data, size, anchor);
        if (hit.at != nullptr) return hit;
        from = static_cast<std::size_t>(anchor - data) + 1;
    }
    return {nullptr, 0};
}

}  // namespace history

void hist_begin(bool either_case) { history::Either_case = either_case; }
