// image.h: the image of the line, the columns that it takes: the one rule of how wide what is.
// Columns of places that were asked for are kept, so that a key in a long line costs no more than
// in a short one.
#pragma once

#include "morp_defs.h"

// A cluster begins at unit `index`, in column `column` of the image; the last place is the end.
struct Place {
    int index;
    int column;
};

// The first column that the image doesn't reach.
int image_end();
// The last place at or before unit `index`, as far as the image goes.
Place image_place(int index);
// The last place at or before column `column`.
Place image_place_at(int column);
// The place behind the cluster at `at`.
Place image_behind(Place at);
