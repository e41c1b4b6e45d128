// sequence.h: the grammar of the escape sequences in a program's output, for all that read it.
// (Keys have one of their own, see decode.h: there an escape may stand for itself.)
#pragma once

#include "morp_defs.h"

// Where output stands in a sequence: nowhere, behind its escape (and bytes 20 to 2f), among the
// parameters of a control sequence, in a string, behind an escape that ends the string or begins
// another sequence.
enum class Sequence : unsigned char { none, escape, control, string, string_escape };

constexpr bool sequence_begins_string(int c) {
    return c == ']' || c == 'P' || c == 'X' || c == '^' || c == '_';
}

// Where it stands behind byte `c`, 0 to 255. The byte that leads back to `none` is the last one.
constexpr Sequence sequence_step(Sequence at, int c) {
    switch (at) {
        case Sequence::escape:
        case Sequence::string_escape:
            if (c == '[') return Sequence::control;
            if (sequence_begins_string(c)) return Sequence::string;
            return c >= 0x20 && c <= 0x2f ? Sequence::escape : Sequence::none;
        case Sequence::control:
            return c >= 0x20 && c <= 0x3f ? Sequence::control : Sequence::none;
        case Sequence::string:
            if (c == kEscape) return Sequence::string_escape;
            return c == kBell ? Sequence::none : Sequence::string;
        case Sequence::none:
            break;
    }
    return c == kEscape ? Sequence::escape : Sequence::none;
}
