// extended.h: the one switch of the extended mode: today's terminals, characters and habits, for
// those who ask for it. Without it every byte is as it always was. docs/ARCHITECTURE.md lists the
// places that ask; most features are rows of tables or functions chosen at start instead.
#pragma once

// Not 0 in extended mode. Set once, never changed afterwards.
extern int Extended;

// Not 0 where TERM is unset, empty or "dumb": no escape sequence may be written.
extern int Dumb_terminal;

// Looks at Q_VXEXTENDED: anything but nothing or "0" switches the mode on. To be called at start,
// before the program is started.
void extended_begin();
