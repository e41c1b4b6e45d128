// follow.cpp: one pass over the program's output, which tells what the terminal takes as one (a
// sequence, a character of several bytes, a line end) and feeds the prompt's capture and the row.
#include <unistd.h>
#include <algorithm>
#include <cstring>

#include "edit.h"
#include "edit/edit_internal.h"
#include "edit/prompt.h"

// The capture takes the output in pieces of this size, each up to its first NUL.
static constexpr int kPrimePiece = 254;

// State: where output ended in what the terminal takes as one.
enum class Piece { whole, carriage_return, escape, control, string, string_escape, character };
static Piece Open = Piece::whole;
static int Missing = 0;    // bytes that a character of several still lacks
static int Parameter = 0;  // of a control sequence: 0 none, its only byte, -1 more than that

void edit_reset_follower() { Open = Piece::whole; }

static Piece begin_piece(int c) {
    if (c == kEscape) return Piece::escape;
    if (c == '\r') return Piece::carriage_return;
    if (c < 0xc0) return Piece::whole;
    Missing = c >= 0xf0 ? 3 : c >= 0xe0 ? 2 : 1;
    return Piece::character;
}

static Piece after_escape(int c) {
    Parameter = 0;
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
            if (c < 0x20 || c > 0x3f) return Piece::whole;
            Parameter = Parameter == 0 ? c : -1;
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

void e_setup_prime(const char *data, int len) {
    const int width = e_window(STDIN_FILENO) + 1;
    int row_from = 0;
    int from = 0;
    // Rows that are done don't matter: most of a flood is passed over here.
    if (const void *const newline = memrchr(data, '\n', static_cast<std::size_t>(len))) {
        row_from = static_cast<int>(static_cast<const char *>(newline) - data);
        if (row_from > 0) out_row_leave(data[row_from - 1] == '\r');
        Open = Piece::whole;
        if (!cut(data, row_from)) from = row_from;
    }
    // So much without a newline has left the row anyway.
    constexpr int kTail = 1024;
    if (len - row_from > kTail) {
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
