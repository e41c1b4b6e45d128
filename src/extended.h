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

// How long a line may get, in bytes.
struct LineLimits {
    int capacity;  // what kread delivers at most, its newline included
    int text;      // of text that a line ever holds
    int room;      // of text that an editor's buffer takes for a moment
    int joint;     // prompt and text in an emacs style stay below it
    int row;       // prompt and text that stand on one row; else the prompt is given up
    int prompt;    // columns of the longest prompt in an emacs style
    int copy;      // a copy of a history command, its NUL included
    bool ends;     // vi: a full line is sent, marked as to be continued; else a key rings there
};
extern LineLimits Limits;

// Chooses them, for the whole run: a terminal's queue takes 4,095 bytes, newline included.
void limits_begin(bool extended);
