// complete_internal.h: what the files of the completion share.
#pragma once

#include "edit/candidates.h"
#include "morp_defs.h"

namespace complete {

// True for what no word holds, beside blanks.
bool ends_word(genchar u);

// Sources. Each begins the candidates anew and offers its own.
// Words of the files named in Q_VXWORDS, 4 MiB at most, for the word of `n` units.
void offer_listed(const genchar *word, int n);
// Words of three characters and more, of the commands in reach and of the program's output.
void offer_used(const genchar *word, int n);
// Names of files that go on with the path at `path`; those with a line end, or a `quote` (0: none),
// are left out. Returns how many units of the path, its folder, the candidates do without. A sole
// candidate that is a folder is followed by a "/" then (names_folder).
int offer_names(const genchar *path, int n, genchar quote);
bool names_folder();

// Shows the candidates in columns above the line, at most half the terminal's rows of them.
void show_candidates();

}  // namespace complete
