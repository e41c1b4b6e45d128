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
#include "edit/sequence.h"
#include "os.h"

// The capture takes the output in pieces of this size, each up to its first NUL.
static constexpr int kPrimePiece = 254;

// State: where output ended in what the terminal takes as one: in a sequence, in a character of
// several bytes, of which some are missing, or behind a carriage return.
static Sequence Open = Sequence::none;
static int Missing = 0;
static bool After_return = false;
static int Parameter = 0;  // of a control sequence: 0 none, its only byte, -1 more than that

// State: the terminal's modes that the program has switched, of a control sequence its numbers.
static constexpr int kBracketedPaste = 2004;
static bool Paste_mode = false;  // the program wants pastes to be marked
static unsigned long Paste_switches = 0;
static bool Private_mode = false;  // the sequence began with a question mark
static int Number = 0;             // the parameter being read, never above kHighestNumber
static bool Names_paste = false;   // one of those before it is kBracketedPaste
static constexpr int kHighestNumber = 99999;

static void nothing_open() {
    Open = Sequence::none;
    Missing = 0;
    After_return = false;
}

void edit_reset_follower() {
    nothing_open();
    Paste_mode = false;
}

bool program_paste_mode() { return Paste_mode; }

unsigned long program_paste_switches() { return Paste_switches; }

static void switch_paste_mode(bool on) {
    Paste_mode = on;
    Paste_switches++;
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

static void take_in_sequence(int c) {
    const Sequence before = Open;
    Open = sequence_step(before, c);
    if (before == Sequence::string) return;
    if (before != Sequence::control) {
        Parameter = 0;
        if (c == 'c') switch_paste_mode(false);  // the terminal begins anew
    } else if (Open == Sequence::none) {
        switch_mode(c);
    } else {
        parameter_byte(c);
    }
}

static void take(int c) {
    if (Open != Sequence::none) {
        take_in_sequence(c);
    } else if (Missing > 0 && (c & 0xc0) == 0x80) {
        Missing--;
    } else {
        Open = sequence_step(Open, c);
        After_return = c == '\r';
        Missing = c >= 0xf0 ? 3 : c >= 0xe0 ? 2 : c >= 0xc0 ? 1 : 0;
    }
}

static void follow_on_row(char c, int width) {
    const Sequence before = Open;
    const bool in_character = Missing > 0;
    take(byte_of(c));
    if (before == Sequence::none) {
        const bool text = byte_of(c) >= 0x80 || is_printable(byte_of(c));
        const bool counts = in_character ? text || After_return : Open == Sequence::none;
        if (counts) out_row_take(c, width);
    } else if (Open == Sequence::none) {
        if (before == Sequence::control) out_row_take_control(c, Parameter);
        if (before == Sequence::escape) out_row_forget();
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
        if (Open == Sequence::none) {
            const void *const found =
                std::memchr(data, kEscape, static_cast<std::size_t>(end - data));
            if (found == nullptr) return;
            data = static_cast<const char *>(found);
            Missing = 0;
        }
        take(byte_of(*data++));
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
        nothing_open();
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

bool out_row_in_piece() { return out_row_in_sequence() || After_return; }

bool out_row_in_sequence() { return Open != Sequence::none || Missing > 0; }
