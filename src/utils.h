// utils.h: choice of the editing style, and two utilities for strings and messages.
#pragma once

// The style that Q_VXEDITOR, VISUAL or EDITOR names, the first that means something: kStyleGmacs,
// kStyleEmacs or kStyleVi; kStyleVi when none does.
int get_editor_type();

// Copies `a` with its NUL to `b` and returns the address of the copied NUL.
char *e_movstr(const char *a, char *b);
// Writes "name : message" and a newline to standard error and ends the process with status 2. A
// null text counts as empty.
[[noreturn]] void e_failed(const char *name, const char *message);
