// extended.cpp: see extended.h.
#include "extended.h"

#include <cstdlib>
#include <cstring>

int Extended = 0;

void extended_begin() {
    const char *value = getenv("Q_VXEXTENDED");
    Extended = value != nullptr && *value != '\0' && strcmp(value, "0") != 0 ? 1 : 0;
}
