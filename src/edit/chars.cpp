// chars.cpp: see chars.h. The rules are chosen once; everything else is a pure function of them and
// of its arguments, or of a Decoder that the caller keeps.
#include "chars.h"

#include <langinfo.h>
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <iterator>

#include "os.h"

// State: of the whole run.
static bool By_locale = false;  // extended mode: the C library knows
static bool Ascii = false;      // its characters are those of ASCII: other bytes don't decode
static bool Utf8 = false;

static bool asks_for_utf8() {
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *value = getenv(name);
        if (value == nullptr || *value == '\0') continue;
        return strcasestr(value, "utf-8") != nullptr || strcasestr(value, "utf8") != nullptr;
    }
    return false;
}

void chars_begin(bool extended) {
    By_locale = extended;
    Ascii = Utf8 = false;
    if (!extended) return;
    os_take_locale(asks_for_utf8());
    const char *codes = nl_langinfo(CODESET);
    Utf8 = strcmp(codes, "UTF-8") == 0;
    Ascii = strcmp(codes, "ANSI_X3.4-1968") == 0 || strcmp(codes, "US-ASCII") == 0;
}

bool chars_utf8() { return Utf8; }

static std::wint_t wide(genchar u) { return static_cast<std::wint_t>(u); }

// ---- The borders.

// Encodes into kCharacterBytes. Returns the number of bytes, 0 where the locale has none for it.
static int encode(genchar u, char *dst) {
    if (!By_locale || u < 128 || is_bad_byte(u)) {
        dst[0] = static_cast<char>(u & 0xff);
        return 1;
    }
    static_assert(kCharacterBytes >= MB_LEN_MAX);
    std::mbstate_t fresh = {};
    const std::size_t n = wcrtomb(dst, static_cast<wchar_t>(u), &fresh);
    return n != static_cast<std::size_t>(-1) ? static_cast<int>(n) : 0;
}

int bytes_of_units(const genchar *units, int n) {
    if (!By_locale) return n;
    char bytes[kCharacterBytes];
    int size = 0;
    for (int i = 0; i < n; i++) size += units[i] < 128 ? 1 : encode(units[i], bytes);
    return size;
}

int decode_end(Decoder &decoder, genchar *out) {
    for (int i = 0; i < decoder.held; i++) out[i] = kBadByte + decoder.bytes[i];
    const int n = decoder.held;
    decoder = {};
    return n;
}

// The character that the held bytes are was completed. Where writing it gives other bytes they
// would not arrive as they were typed, and stay bytes; so does what the library takes for a
// character beyond the last one.
static int take_character(Decoder &decoder, wchar_t wc, genchar *out) {
    char bytes[kCharacterBytes];
    out[0] = static_cast<genchar>(wc);
    const int n = encode(out[0], bytes);
    const bool exists = !Utf8 || out[0] <= 0x10ffff;
    if (!exists || n != decoder.held ||
        memcmp(bytes, decoder.bytes, static_cast<std::size_t>(n)) != 0)
        return decode_end(decoder, out);
    decoder = {};
    return 1;
}

int decode_byte(Decoder &decoder, int byte, genchar *out) {
    const unsigned char held = static_cast<unsigned char>(byte);
    if (!By_locale) {
        out[0] = held;
        return 1;
    }
    if (Ascii && held >= 128) {
        out[0] = kBadByte + held;
        return 1;
    }
    const char c = static_cast<char>(held);
    int given_up = 0;
    bool again = true;
    while (again) {
        again = decoder.held > 0;  // what doesn't go on with that may begin something
        wchar_t wc = 0;
        const std::size_t result = mbrtowc(&wc, &c, 1, &decoder.state);
        if (result != static_cast<std::size_t>(-1) && decoder.held < kCharacterBytes) {
            decoder.bytes[decoder.held++] = held;
            const bool whole = result != static_cast<std::size_t>(-2);
            return given_up + (whole ? take_character(decoder, wc, out + given_up) : 0);
        }
        given_up += decode_end(decoder, out + given_up);
    }
    out[given_up] = kBadByte + held;
    return given_up + 1;
}

int units_from_bytes(genchar *dst, int room, const char *src, int len) {
    Decoder decoder = {};
    genchar units[kDecodedUnits];
    int n = 0;
    for (int i = 0; i <= len && n < room; i++) {
        const bool more = i < len;
        const int got = more ? decode_byte(decoder, static_cast<unsigned char>(src[i]), units)
                             : decode_end(decoder, units);
        const int fit = std::min(got, room - n);
        std::copy_n(units, fit, dst + n);
        n += fit;
    }
    return n;
}

int bytes_from_units(char *dst, int room, const genchar *src, int n) {
    char bytes[kCharacterBytes];
    int len = 0;
    for (int i = 0; i < n; i++) {
        const int size = encode(src[i], bytes);
        if (size > room - len) break;
        std::copy_n(bytes, size, dst + len);
        len += size;
    }
    return len;
}

// ---- Classes.

struct Range {
    genchar first, last;
};

template <std::size_t N>
static bool in_any(genchar u, const Range (&ranges)[N]) {
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [u](const Range &r) { return u >= r.first && u <= r.last; });
}

// Characters without a look of their own, some of which turn the row round: never shown as
// themselves but where they join. The library has no class for them.
static constexpr Range kFormats[] = {
    {0xad, 0xad},       {0x600, 0x605},     {0x61c, 0x61c},     {0x6dd, 0x6dd},
    {0x70f, 0x70f},     {0x890, 0x891},     {0x8e2, 0x8e2},     {0x180e, 0x180e},
    {0x200b, 0x200f},   {0x2028, 0x202e},   {0x2060, 0x206f},   {0xfeff, 0xfeff},
    {0xfff9, 0xfffb},   {0x110bd, 0x110bd}, {0x110cd, 0x110cd}, {0x13430, 0x1343f},
    {0x1bca0, 0x1bca3}, {0x1d173, 0x1d17a}, {0xe0000, 0xe007f},
};
// Of private use, and no characters at all.
static constexpr Range kPrivate[] = {
    {0xd800, 0xf8ff}, {0xfdd0, 0xfdef}, {0xf0000, 0x10ffff}, {0x110000, 0xffffffff}};
// Two columns everywhere, where the library says two; of what it doesn't know it says nothing.
static constexpr Range kEastAsian[] = {
    {0x1100, 0x115f}, {0x2e80, 0x303e}, {0x3041, 0x3247},   {0x3250, 0x4dbf},
    {0x4e00, 0xa4cf}, {0xac00, 0xd7a3}, {0xf900, 0xfaff},   {0xfe30, 0xfe6f},
    {0xff01, 0xff60}, {0xffe0, 0xffe6}, {0x20000, 0x3fffd},
};

static constexpr genchar kZeroWidthNonJoiner = 0x200c;
static constexpr genchar kEmojiStyle = 0xfe0f;
static constexpr genchar kEmojiFrom = 0x1f000;

static constexpr bool ascii_prints(genchar u) { return u >= 32 && u <= 126; }
static constexpr bool is_regional(genchar u) { return u >= 0x1f1e6 && u <= 0x1f1ff; }
static constexpr bool is_skin_tone(genchar u) { return u >= 0x1f3fb && u <= 0x1f3ff; }
static constexpr bool is_tag(genchar u) { return u >= 0xe0020 && u <= 0xe007f; }

// A code point that the library doesn't know yet: newer terminals do.
static bool unassigned(genchar u) {
    return u >= 0xa0 && iswprint(wide(u)) == 0 && iswcntrl(wide(u)) == 0 && !in_any(u, kFormats) &&
           !in_any(u, kPrivate) && (u & 0xfffe) != 0xfffe;
}

// The columns of a unit that shows, -1 for one that doesn't. Byte mode asks for ASCII only.
static int width_of(genchar u) {
    if (u < 128) return ascii_prints(u) ? 1 : -1;
    if (!By_locale || is_bad_byte(u)) return -1;
    if (is_regional(u)) return 2;
    if (iswprint(wide(u)) == 0) return unassigned(u) ? (u >= kEmojiFrom ? 2 : 1) : -1;
    return wcwidth(static_cast<wchar_t>(u));
}

// Takes no column and shows only with the base before it.
static bool joins_base(genchar u) {
    if (u < 128 || !By_locale || is_bad_byte(u)) return false;
    if (u == kZeroWidthNonJoiner || is_skin_tone(u)) return true;
    return !in_any(u, kFormats) && width_of(u) == 0;
}

static bool is_base(genchar u) { return width_of(u) > 0 && (u < 128 || !in_any(u, kFormats)); }

bool unit_printable(genchar u) { return is_base(u); }

bool unit_blank(genchar u) {
    if (u < 128 || !By_locale) return u == ' ' || (u >= 9 && u <= 13);
    return !is_bad_byte(u) && iswspace(wide(u)) != 0;
}

bool unit_word(genchar u) {
    if (u < 128 || !By_locale)
        return (u >= '0' && u <= '9') || (u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z');
    return !is_bad_byte(u) && iswalnum(wide(u)) != 0;
}

bool unit_upper(genchar u) {
    if (u < 128 || !By_locale) return u >= 'A' && u <= 'Z';
    return !is_bad_byte(u) && iswupper(wide(u)) != 0;
}

bool unit_lower(genchar u) {
    if (u < 128 || !By_locale) return u >= 'a' && u <= 'z';
    return !is_bad_byte(u) && iswlower(wide(u)) != 0;
}

// `changed`, unless the locale can't write it.
static genchar writable(genchar u, std::wint_t changed) {
    char bytes[kCharacterBytes];
    const genchar other = static_cast<genchar>(changed);
    return encode(other, bytes) > 0 ? other : u;
}

genchar unit_to_upper(genchar u) {
    if (!unit_lower(u)) return u;
    return u < 128 ? u - 'a' + 'A' : writable(u, towupper(wide(u)));
}

genchar unit_to_lower(genchar u) {
    if (!unit_upper(u)) return u;
    return u < 128 ? u - 'A' + 'a' : writable(u, towlower(wide(u)));
}

bool unit_stands_for(genchar typed, genchar u) {
    return typed == u || (unit_lower(typed) && unit_to_lower(u) == typed);
}

bool unit_plain(genchar u) { return ascii_prints(u); }

// ---- Clusters.

// Starts a cluster whatever stands before it, unless that is a joiner.
static bool starts_alone(genchar u) {
    return u < 128 || !By_locale ||
           (u != kJoiner && !joins_base(u) && !is_regional(u) && !is_tag(u));
}

int cluster_end(const genchar *line, int len, int at) {
    const genchar first = line[at];
    const int most = std::min(len, at + kMostJoined);
    bool base = is_base(first);
    bool paired = !is_regional(first);  // no second half of a flag is awaited
    bool emoji = first >= kEmojiFrom;
    int i = at + 1;
    for (; i < most; i++) {
        const genchar u = line[i];
        if (line[i - 1] == kJoiner && By_locale) {
            base = base || is_base(u);
            emoji = u >= kEmojiFrom;
        } else if (u < 128 || !By_locale) {
            break;
        } else if (is_regional(u) && !paired && i == at + 1) {
            paired = true;
        } else if (u != kJoiner && !(base && (joins_base(u) || (emoji && is_tag(u))))) {
            break;
        }
    }
    return i;
}

int cluster_start(const genchar *line, int len, int at) {
    if (at >= len) return len;
    int start = at;
    while (start > 0 && !(starts_alone(line[start]) && !(By_locale && line[start - 1] == kJoiner)))
        start--;
    for (;;) {
        const int end = cluster_end(line, len, start);
        if (end > at) return start;
        start = end;
    }
}

int cluster_before(const genchar *line, int len, int at) {
    return cluster_start(line, len, at - 1);
}

// ---- How they are shown.

static bool certain(genchar u, int width) {
    return ascii_prints(u) || (width == 2 && in_any(u, kEastAsian) && !unassigned(u));
}

static Shown unit_shown(genchar u, int at) {
    if (is_base(u)) return {width_of(u), false, certain(u, width_of(u))};
    genchar spelling[kSpelling];
    return {unit_spelling(u, at, spelling), true, true};
}

Shown cluster_shown(const genchar *cluster, int n, int at) {
    if (n == 1) return unit_shown(cluster[0], at);
    bool itself = is_base(cluster[0]);
    int columns = 0;
    for (int i = 0; i < n && itself; i++) {
        const genchar u = cluster[i];
        itself = u == kJoiner || joins_base(u) || is_base(u) || is_tag(u);
        columns += std::max(width_of(u), 0);
        if (u == kEmojiStyle && width_of(cluster[i - 1]) == 1) columns++;
    }
    if (itself) return {columns, false, false};
    int column = at;
    for (int i = 0; i < n; i++) column += unit_shown(cluster[i], column).columns;
    return {column - at, true, false};
}

int unit_spelling(genchar u, int at, genchar *dst) {
    if (u == '\t') {
        const int n = 8 - at % 8;
        std::fill_n(dst, n, U' ');
        return n;
    }
    if (unit_plain(u)) {
        dst[0] = u;
        return 1;
    }
    if (u < 128 || !By_locale) {
        dst[0] = '^';
        dst[1] = u ^ 64;
        return 2;
    }
    char text[16];
    const int n = is_bad_byte(u)
                      ? snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned>(u - kBadByte))
                      : snprintf(text, sizeof text, "<%04x>", static_cast<unsigned>(u));
    std::copy_n(text, n, dst);
    return n;
}
