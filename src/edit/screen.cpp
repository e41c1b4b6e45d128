// screen.cpp: the map from a line to the columns that show it.
#include "edit.h"

// Writes the image of one character at column `at` and returns the column behind it.
static int write_image(genchar *phys, int at, int c) {
    if (is_printable(c)) {
        phys[at++] = static_cast<genchar>(c);
    } else if (c == '\t') {
        do phys[at++] = ' ';
        while (at % 8 != 0);
    } else {
        phys[at++] = '^';
        phys[at++] = static_cast<genchar>(c ^ 64);
    }
    return at;
}

int e_virt_to_phys(const genchar *virt, genchar *phys, int cur, int voff, int poff) {
    // A character that begins before this column is written whole.
    constexpr int kLastColumn = 258;
    int at = poff;
    int column = poff;
    for (int i = voff; virt[i] != '\0' && at < kLastColumn; i++) {
        const int start = at;
        at = write_image(phys, at, byte_of(virt[i]));
        if (i == cur) column = (opt_flag & kStyleVi) != 0 ? at - 1 : start;
    }
    phys[at] = '\0';
    return column;
}
