// follow.cpp: one pass over the program's output, which tells what the terminal takes as one (a
// sequence, a character of several bytes, a line end) and feeds the prompt's capture and the row.
// Most of a flood is passed over; only its sequences are looked at, since one may switch a mode of
// the terminal that has to be left as the program wants it.
#include <unistd.h>
#include <algorithm>
#include <cstring>

#include "edit.h"
#include "edit/edit_internal.h"
#include "edit/prompt.h"
#include "os.h"

// The capture takes the output in pieces of this size, each up to its first NUL.
static constexpr int kPrimePiece = 254;

// State: where output ended in what the terminal takes as one.
enum class Piece { whole, carriage_return, escape, control, string, string_escape, character };
static Piece Open = Piece::whole;
static int Missing = 0;    // bytes that a character of several still lacks
static int Parameter = 0;  // of a control sequence: 0 none, its only byte, -1 more than that

// State: the terminal's modes that the program has switched, of a control sequence its numbers.
static constexpr int kBracketedPaste = 2004;
static bool Paste_mode = false;  // the program wants pastes to be marked
static unsigned long Paste_switches = 0;
static bool Private_mode = false;  // the sequence began with a question mark
static int Number = 0;             // the parameter being read, never above kHighestNumber
static bool Names_paste = false;   // one of those before it is kBracketedPaste
static constexpr int kHighestNumber = 99999;

void edit_reset_follower() {
    Open = Piece::whole;
    Paste_mode = false;
}

bool program_paste_mode() { return Paste_mode; }

unsigned long program_paste_switches() { return Paste_switches; }

static void switch_paste_mode(bool on) {
    Paste_mode = on;
    Paste_switches++;
}

static Piece begin_piece(int c) {
    if (c == kEscape) return Piece::escape;
    if (c == '\r') return Piece::carriage_return;
    if (c < 0xc0) return Piece::whole;
    Missing = c >= 0xf0 ? 3 : c >= 0xe0 ? 2 : 1;
    return Piece::character;
}

static void parameter_byte(int c) {
    if (Parameter == 0) {
        Private_mode = c == '?';
        Names_paste = false;
        Number = 0;
    }
    Parameter = Parameter == 0 ? c : -1;
    if (is_digit(c)) {
        Number = std::min(Number * 10 + (c - '0'), kHighestNumber);
    } else {
        Names_paste = Names_paste || Number == kBracketedPaste;
        Number = 0;
    }
}

// The final byte of a control sequence.
static void switch_mode(int c) {
    const bool paste = Parameter != 0 && Private_mode && (Names_paste || Number == kBracketedPaste);
    if (paste && (c == 'h' || c == 'l')) switch_paste_mode(c == 'h');
}

static Piece after_escape(int c) {
    Parameter = 0;
    if (c == 'c') switch_paste_mode(false);  // the terminal begins anew
    if (c == '[') return Piece::control;
    if (c != 0 && std::strchr("]PX^_", c) != nullptr) return Piece::string;
    return c >= 0x20 && c <= 0x2f ? Piece::escape : Piece::whole;
}

static Piece next_piece(int c) {
    switch (Open) {
        case Piece::escape:
        case Piece::string_escape:
            return after_escape(c);
        case Piece::control:
            if (c < 0x20 || c > 0x3f) {
                switch_mode(c);
                return Piece::whole;
            }
            parameter_byte(c);
            return Piece::control;
        case Piece::string:
            if (c == kEscape) return Piece::string_escape;
            return c == kBell ? Piece::whole : Piece::string;
        case Piece::character:
            if ((c & 0xc0) != 0x80) return begin_piece(c);
            return --Missing > 0 ? Piece::character : Piece::whole;
        case Piece::whole:
        case Piece::carriage_return:
            break;
    }
    return begin_piece(c);
}

static void follow_on_row(char c, int width) {
    const Piece before = Open;
    Open = next_piece(byte_of(c));
    if (before == Piece::control) {
        if (Open == Piece::whole) out_row_take_control(c, Parameter);
    } else if (before == Piece::whole || before == Piece::carriage_return) {
        if (Open != Piece::escape) out_row_take(c, width);
    } else if (before == Piece::escape && Open == Piece::whole) {
        out_row_forget();
    } else if (before == Piece::character && Open != Piece::character) {
        if (is_printable(byte_of(c)) || Open == Piece::carriage_return) out_row_take(c, width);
    }
}

// True when a NUL keeps the capture from seeing the byte at `at`.
static bool cut(const char *data, int at) {
    const int into_piece = at % kPrimePiece;
    return std::memchr(data + at - into_piece, '\0', static_cast<std::size_t>(into_piece)) !=
           nullptr;
}

// Passes over `len` bytes, but for the sequences in them.
static void pass_over(const char *data, int len) {
    const char *const end = data + len;
    while (data < end) {
        if (!out_row_in_sequence() || Open == Piece::character) {
            const void *const found =
                std::memchr(data, kEscape, static_cast<std::size_t>(end - data));
            if (found == nullptr) return;
            data = static_cast<const char *>(found);
            Open = Piece::whole;
        }
        Open = next_piece(byte_of(*data++));
    }
}

void e_setup_prime(const char *data, int len) {
    const int width = e_window(STDIN_FILENO) + 1;
    int row_from = 0;
    int from = 0;
    // Rows that are done don't matter: most of a flood is passed over here.
    if (const void *const newline = os_last_byte(data, '\n', static_cast<std::size_t>(len))) {
        row_from = static_cast<int>(static_cast<const char *>(newline) - data);
        if (row_from > 0) out_row_leave(data[row_from - 1] == '\r');
        if (Rich_rows) pass_over(data, row_from);
        Open = Piece::whole;
        if (!cut(data, row_from)) from = row_from;
    }
    // So much without a newline has left the row anyway, unless most of it is colours.
    constexpr int kTail = 1024;
    if (!Rich_rows && len - row_from > kTail) {
        row_from = len - kTail;
        out_row_forget();
    }
    bool captured = true;
    for (int i = from; i < len; i++) {
        if (i == from || i % kPrimePiece == 0) captured = true;
        captured = captured && data[i] != '\0';
        if (captured) capture_take(data[i]);
        if (i >= row_from) follow_on_row(data[i], width);
    }
}

bool out_row_in_piece() { return Open != Piece::whole; }

bool out_row_in_sequence() { return out_row_in_piece() && Open != Piece::carriage_return; }
