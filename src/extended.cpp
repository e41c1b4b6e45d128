// extended.cpp: see extended.h.
#include "extended.h"

#include <cstdlib>
#include <cstring>

int Extended = 0;
int Dumb_terminal = 0;

void extended_begin() {
    const char *value = getenv("Q_VXEXTENDED");
    Extended = value != nullptr && *value != '\0' && strcmp(value, "0") != 0 ? 1 : 0;
    const char *terminal = getenv("TERM");
    const bool known = terminal != nullptr && *terminal != '\0' && strcmp(terminal, "dumb") != 0;
    Dumb_terminal = known ? 0 : 1;
}
