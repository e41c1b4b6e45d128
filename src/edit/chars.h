// chars.h: what a character is. The line, the history's text in the editors, a search text and the
// prompt are made of units; this file alone knows which there are, how they are read and written,
// what class they have and how they look.
//
// Byte mode: a unit is a byte, 0 to 255, and only plain ASCII prints. Extended mode: a unit is a
// code point of the user's locale, or a byte that doesn't decode, kept as itself so that what was
// typed is what arrives. Decoding, classes, case and widths are the C library's.
//
// A cluster is what moves and goes as one: a base and what joins it. In byte mode each unit is one.
#pragma once

#include <cstddef>
#include <cwchar>

#include "morp_defs.h"

// A byte b that doesn't decode is the unit kBadByte + b: a lone half of a surrogate pair, which no
// decoder gives.
inline constexpr genchar kBadByte = 0xDC00;
constexpr bool is_bad_byte(genchar u) { return u >= kBadByte && u < kBadByte + 256; }

// Most bytes of one unit, most units that one byte completes, most units of one cluster (those
// behind it begin another one).
inline constexpr int kCharacterBytes = 16;
inline constexpr int kDecodedUnits = kCharacterBytes + 1;
inline constexpr int kMostJoined = 32;
// Joins the characters beside it, and shows nothing of its own.
inline constexpr genchar kJoiner = 0x200d;

// Chooses the rules, for the whole run: those of bytes, or the locale's. A locale that isn't
// installed but whose name asks for UTF-8 is replaced by "C.UTF-8". Byte mode needs no call.
void chars_begin(bool extended);
// True in extended mode where the locale is UTF-8.
bool chars_utf8();

// The borders: where bytes become units, and units bytes.
// Decodes a stream; zero at its start. What it holds are the first bytes of a character.
struct Decoder {
    std::mbstate_t state;
    int held;  // bytes
    unsigned char bytes[kCharacterBytes];
};
// Takes `byte` (0 to 255) and stores the units that are whole now at `out` (kDecodedUnits). Returns
// their number, 0 while more bytes have to come. A byte that doesn't belong to what is held makes
// single bytes of that, and is then decoded afresh.
int decode_byte(Decoder &decoder, int byte, genchar *out);
// Gives up what is held, as single bytes. Returns their number.
int decode_end(Decoder &decoder, genchar *out);
inline bool decoder_pending(const Decoder &decoder) { return decoder.held > 0; }
// Decodes `len` bytes into at most `room` units; a character cut at the end is single bytes.
// Returns the number of units.
int units_from_bytes(genchar *dst, int room, const char *src, int len);
// Encodes `n` units into at most `room` bytes, whole units only. Returns the number of bytes.
int bytes_from_units(char *dst, int room, const genchar *src, int n);
// The number of bytes of `n` units.
int bytes_of_units(const genchar *units, int n);

// Classes. Printable: shown as itself.
bool unit_printable(genchar u);
bool unit_blank(genchar u);
bool unit_word(genchar u);  // letters and digits
bool unit_upper(genchar u);
bool unit_lower(genchar u);
genchar unit_to_upper(genchar u);
genchar unit_to_lower(genchar u);
// Whether `typed`, looked for, is also found in `u`: a lower-case letter stands for both cases.
bool unit_stands_for(genchar typed, genchar u);
// Printable, one column on every terminal, and nothing that joins a unit beside it.
bool unit_plain(genchar u);

// Clusters of the `len` units of `line`. `cluster_end`: one past the cluster that starts at `at`.
// `cluster_start`: the start of the one that holds unit `at`; `len` for `at` >= `len`.
// `cluster_before`: the start of the one before the one that starts at `at` > 0.
int cluster_end(const genchar *line, int len, int at);
int cluster_start(const genchar *line, int len, int at);
int cluster_before(const genchar *line, int len, int at);

// How a cluster that begins at column `at` is shown.
struct Shown {
    int columns;   // that it takes at most, whatever the terminal thinks of it
    bool spelled;  // unit by unit: those that print as themselves, the others by unit_spelling
    bool safe;     // a movement relative to it is right on every terminal
};
Shown cluster_shown(const genchar *cluster, int n, int at);
// What stands for one unit that isn't shown as itself, beginning at column `at`: at most kSpelling
// characters of ASCII (in byte mode: bytes). A TAB runs to the next multiple of 8, a control
// character is a caret and a letter, a byte that doesn't decode \xhh, anything else <hhhh>. Returns
// their number.
inline constexpr int kSpelling = 8;
int unit_spelling(genchar u, int at, genchar *dst);
