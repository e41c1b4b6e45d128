// extended.cpp: see extended.h.
#include "extended.h"

#include <cstdlib>
#include <cstring>

#include "morp_defs.h"

int Extended = 0;
int Dumb_terminal = 0;

// Leaves room for one whole burst of keys.
static constexpr int kLongestPrompt = 87;
static constexpr LineLimits kShortLines = {kLineCapacity,
                                           kLineCapacity - 1,
                                           kKeyboardBuffer - 1,
                                           kKeyboardBuffer,
                                           kLineCapacity - 1,
                                           kLongestPrompt,
                                           kMaxLine,
                                           true};
static constexpr int kLongText =
    kLineBuffer - 2;  // newline or NUL behind it, and one byte to spare
static constexpr LineLimits kLongLines = {
    kLongText + 1,   kLongText,   kLongText,     2 * kLineBuffer,
    2 * kLineBuffer, kLineBuffer, kLongText + 2, false};

LineLimits Limits = kShortLines;

void limits_begin(bool extended) { Limits = extended ? kLongLines : kShortLines; }

void extended_begin() {
    const char *value = getenv("Q_VXEXTENDED");
    Extended = value != nullptr && *value != '\0' && strcmp(value, "0") != 0 ? 1 : 0;
    const char *terminal = getenv("TERM");
    const bool known = terminal != nullptr && *terminal != '\0' && strcmp(terminal, "dumb") != 0;
    Dumb_terminal = known ? 0 : 1;
}
