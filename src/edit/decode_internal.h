// decode_internal.h: what the files of the decoder share.
#pragma once

#include "edit/decode.h"

namespace decode {

inline constexpr int kMostParameters = 4;

// A control sequence as it was read.
struct Control {
    char kind;    // [ or O
    char prefix;  // of ? < = >, 0 none
    char final;   // 0: broken off
    int count;    // parameters, of which kMostParameters are kept, -1 where one is empty
    int value[kMostParameters];
    int event;     // behind a colon in the last parameter, 1 if there is none
    bool strange;  // it has intermediates
};

// The next byte, or code pushed back; kNoKey when none comes within `timeout_ns`. Such a byte may
// be given back at once.
int take(long timeout_ns);
void give_back(int c);
constexpr bool is_byte(int c) { return c >= 0 && c <= 255; }

// Reads what stands behind "ESC [" or "ESC O" (`kind`), to its end.
Control read_control(char kind);
// The key that it stands for, kKeyUnknown for none; kKeyNothing for a key that was let go.
int key_of(const Control &control);
// The key of the sequence `text` (behind the escape, without parameters that tell modifiers).
int find_sequence(const char *text);

}  // namespace decode
