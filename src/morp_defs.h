// morp_defs.h: definitions that most modules need: the character type, buffer sizes, key codes.
#pragma once

// A character of a line being edited: a byte, 0 to 255, or in extended mode more (edit/chars.h).
using genchar = char32_t;

// Codes of the editing style, `opt_flag`.
inline constexpr int kStyleGmacs = 1;
inline constexpr int kStyleEmacs = 2;
inline constexpr int kStyleVi = 8;

// Units that a line being edited ever has room for; bytes of a buffer that takes a line, or the
// copy of one, in either mode. How much of it a mode uses: Limits in extended.h.
inline constexpr int kLineUnits = 4096;
inline constexpr int kLineBuffer = 4096;
// A copy of a history command: at most 257 bytes and a NUL. So many columns an image has, and a
// search text in vi style bytes.
inline constexpr int kMaxLine = 258;
// A screen image: 258 columns, one character that runs over, and room for padding.
inline constexpr int kMaxImage = 516;
// What `kread` delivers at most, and the buffer that it is given (bytes).
inline constexpr int kLineCapacity = 256;
inline constexpr int kKeyboardBuffer = 266;
// Counts typed before a command stop growing here.
inline constexpr int kMaxCount = 32767;

// A system call that is cut short by signals this often is taken as failed.
inline constexpr int kInterruptions = 100;

inline constexpr int kEscape = 27;
inline constexpr int kBell = 7;

// The code that the control key of letter `c` (upper case, or one of @[\]^_) sends.
constexpr int ctrl(char c) { return c & 0x1f; }

// What bytes of the program's output and of the history are; for those of a line see edit/chars.h.
// Printable means plain ASCII. `c` is 0 to 255, or negative (never printable).
constexpr bool is_printable(int c) { return c >= 32 && c <= 126; }
constexpr bool is_blank(int c) { return c == ' ' || (c >= 9 && c <= 13); }
constexpr bool is_digit(int c) { return c >= '0' && c <= '9'; }

// The value 0 to 255 of a byte.
constexpr int byte_of(char c) { return static_cast<unsigned char>(c); }

// What a special character reads as when the terminal has it disabled: equal to no key.
inline constexpr int kNoKey = -100;
