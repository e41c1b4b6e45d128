// row.h: what the program left on the screen's row.
#pragma once

// `len` bytes of program output are being shown.
void row_follow(const char *data, int len);
// True when they end within what a terminal takes as one, a carriage return before a newline
// included; only within an escape sequence or a character.
bool row_in_piece();
bool row_in_sequence();
// Somebody else has written on the row.
void row_forget();

// What the editors ask of their host about it (EditHost).
int pass_row_rest(char *dst);
int pass_row_column();
void pass_row_new();
