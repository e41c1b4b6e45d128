// proc.h: what the system tells of the program and of those above morp.
#pragma once

// True when the program leaves a stop request to the system.
bool program_stops_by_default();
// True when somebody outside morp's process group, in its session, could continue it: then the
// group is not orphaned. Looks at morp's ancestors.
bool can_be_continued();
// Opens the working directory of the process that leads the foreground group of the program's
// terminal, that of the program where the system doesn't tell, else morp's own: a descriptor for
// openat alone. -1 where there is none that can be opened without asking the network.
int open_program_folder();
