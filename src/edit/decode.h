// decode.h: from the bytes of the keyboard to key codes. The editors take keys here, one at a time;
// until it is taken a key stays in its bytes, so that keys typed ahead can still be given to the
// program as they came.
//
// A code is a unit of text (see chars.h), an editor's own code (negative), or one of those below,
// with bits for what was held down with it.
#pragma once

inline constexpr int kKeyBase = 0x200000;  // above all units
inline constexpr int kKeyUp = kKeyBase;
inline constexpr int kKeyDown = kKeyBase + 1;
inline constexpr int kKeyRight = kKeyBase + 2;
inline constexpr int kKeyLeft = kKeyBase + 3;
inline constexpr int kKeyHome = kKeyBase + 4;
inline constexpr int kKeyEnd = kKeyBase + 5;
inline constexpr int kKeyInsert = kKeyBase + 6;
inline constexpr int kKeyDelete = kKeyBase + 7;
inline constexpr int kKeyPageUp = kKeyBase + 8;
inline constexpr int kKeyPageDown = kKeyBase + 9;
inline constexpr int kKeyF1 = kKeyBase + 11;       // to F12, in order
inline constexpr int kKeyUnknown = kKeyBase + 30;  // a whole sequence that stands for no key here
inline constexpr int kKeyNothing = kKeyBase + 31;  // never given out: nothing was asked for

inline constexpr int kShift = 1 << 24;
inline constexpr int kAlt = 1 << 25;  // also for a key behind ESC, where that is a prefix
inline constexpr int kCtrl = 1 << 26;
inline constexpr int kModifiers = kShift | kAlt | kCtrl;
// Text whatever it is: from the clipboard, or part of a quoted sequence. With a newline, an end of
// line in the clipboard.
inline constexpr int kPasted = 1 << 27;

// What an escape key is that no sequence follows.
enum class EscapeKey {
    prefix,  // one command with the key behind it, however long that takes
    key,     // after 50 ms a key of its own
};

// Chooses how keys are read, once a run. `bytes`: each byte is a key, and no sequence but those of
// the arrow keys is known, by the rule that the style in opt_flag has.
void decode_begin(bool bytes, EscapeKey escape);

// The next key. Waits and leaves as e_getchar does.
int e_getkey();
// The next key as text: what a quote in front of it makes of it. Of a sequence all bytes are text:
// the first is returned, the next calls give the others, kPasted set.
int e_gettext();
// The next key where an escape key stands for itself: as e_getkey, but with bytes as keys no
// sequence is known.
int e_gettyped();
// Whether a code of e_gettyped is text where some is expected: no key of a terminal, and not the
// escape key where that can be told from the beginning of a sequence. A NUL never is.
bool e_is_text(int code);
// With bytes as keys, reads what follows an escape that e_gettyped has given: the code of the
// whole.
int e_getsequence();
// Pushes back a key that e_getkey has given.
void e_ungetkey(int code);
// Puts the bytes behind what stands on the read-ahead stack (a byte, or a key pushed back) into
// `dst` (kKeyBytes) and returns their number: none for a code that no byte stands for.
inline constexpr int kKeyBytes = 16;
int decode_bytes_of(int held, char *dst);

// To be called at the start of a line: the edit before may have ended within a key.
void decode_begin_line();
// The edit was taken away: stores the bytes that had come of a key, a character or a sequence, at
// most `room`, at `dst`, and returns their number.
int decode_unfinished(char *dst, int room);

// True between the marks of a paste.
bool decode_in_paste();
// Between two lines: the keyboard has had nothing for kPasteSilence, which ends one without an end.
inline constexpr long kPasteSilence = 1'000'000'000;  // nanoseconds
void decode_silence();
// How many pastes have begun: the number of the one under way, or of the last.
int decode_pastes();
// `len` keys are on their way to the program, which has not asked for marks around a paste: takes
// them out, also one that is split over two calls. Returns the bytes left. `keys` holds
// kMarkLength - 1 bytes more than `len`.
inline constexpr int kMarkLength = 6;
int decode_passed_keys(char *keys, int len);
void decode_reset();
