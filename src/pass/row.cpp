// row.cpp: what the program left on the screen's row behind its cursor, and where that is. A
// program that ends a piece of output with a carriage return leaves the cursor in front of it: the
// line being edited then stands over that output, which has to be seen again when the line steps
// aside. Also whether output ended in the middle of something that the terminal takes as one.
#include "row.h"

#include <unistd.h>
#include <algorithm>
#include <cstring>

#include "edit.h"
#include "edit/host.h"

// State: the row as the program printed it, one plain character a column, as far as it is known.
// What is not followed here (tabs, other alphabets, most escape sequences) makes it unknown, mostly
// up to the next newline.
static char Row[kRowColumns];
static int Row_len = 0;  // columns in use
static int Row_at = 0;   // the program's cursor; while the row is unknown 0 or anywhere else, 1
static bool Row_known = true;

// State: where output ended in what the terminal takes as one.
enum class Piece { whole, carriage_return, escape, control, string, string_escape, character };
static Piece Open = Piece::whole;
static int Missing = 0;    // bytes that a character of several still lacks
static int Parameter = 0;  // of a control sequence: 0 none, its only byte, -1 more than that

void pass_row_new() {
    Row_len = Row_at = 0;
    Row_known = true;
}

void row_forget() {
    Row_known = false;
    Row_at = 1;
}

int pass_row_rest(char *dst) {
    if (!Row_known || Row_len <= Row_at) return 0;
    const int len = Row_len - Row_at;
    std::memcpy(dst, Row + Row_at, static_cast<std::size_t>(len));
    return len;
}

int pass_row_column() { return Row_known ? Row_at : -1; }

static void put_on_row(char c, int width) {
    if (!Row_known || Row_at >= width) {  // at the screen's edge it wraps
        row_forget();
        return;
    }
    for (; Row_len <= Row_at; Row_len++) Row[Row_len] = ' ';
    Row[Row_at++] = c;
}

static void follow_byte(char c, int width) {
    if (c == '\n') {
        // The program's terminal has put a carriage return in front of it.
        Row_known = Row_at == 0;
        Row_len = 0;
    } else if (c == '\r') {
        Row_at = 0;
    } else if (c == '\b') {
        Row_at = std::max(Row_at - 1, Row_known ? 0 : 1);
    } else if (is_printable(byte_of(c))) {
        put_on_row(c, width);
    } else if (c != kBell && c != '\0') {
        row_forget();
    }
}

// Colours change nothing here; a row that is erased from its start on is known again.
static void follow_control(int final) {
    const bool all = Parameter == '2' || (final == 'J' && Parameter == '3');
    const bool to_end = Parameter == 0 || Parameter == '0';
    if ((final == 'K' || final == 'J') && (all || to_end)) {
        if (Row_at == 0) Row_known = true;
        Row_len = all ? 0 : std::min(Row_len, Row_at);
    } else if (final == 'H' && Parameter == 0) {
        Row_known = false;
        Row_at = 0;
    } else if (final != 'm') {
        row_forget();
    }
}

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

static void follow(char c, int width) {
    const Piece before = Open;
    Open = next_piece(byte_of(c));
    if (before == Piece::control) {
        if (Open == Piece::whole) follow_control(c);
    } else if (before == Piece::whole || before == Piece::carriage_return) {
        if (Open != Piece::escape) follow_byte(c, width);
    } else if (before == Piece::escape && Open == Piece::whole) {
        row_forget();
    } else if (before == Piece::character && Open != Piece::character) {
        if (is_printable(byte_of(c)) || Open == Piece::carriage_return) follow_byte(c, width);
    }
}

void row_follow(const char *data, int len) {
    const int width = e_window(STDIN_FILENO) + 1;
    int from = 0;
    // Rows that are done don't matter: most of a flood is passed over here.
    if (const void *const newline = memrchr(data, '\n', static_cast<std::size_t>(len))) {
        from = static_cast<int>(static_cast<const char *>(newline) - data);
        if (from > 0) Row_at = data[from - 1] == '\r' ? 0 : 1;
        Open = Piece::whole;
    }
    // So much without a newline has left the row anyway.
    constexpr int kTail = 1024;
    if (len - from > kTail) {
        from = len - kTail;
        row_forget();
    }
    for (int i = from; i < len; i++) follow(data[i], width);
}

bool row_in_piece() { return Open != Piece::whole; }

bool row_in_sequence() { return row_in_piece() && Open != Piece::carriage_return; }
