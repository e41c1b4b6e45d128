// edit_internal.h: what the files of the edit module share.
#pragma once

void edit_reset_terminal();
void edit_reset_keys();
void edit_reset_follower();
void edit_reset_prime();
void edit_reset_out_row();

// Extended mode, chosen once by rows_begin: a row, and the prompt on it, may hold colours and
// characters of any width.
extern bool Rich_rows;

// What the follower of the program's output feeds (follow.cpp): the capture with each byte,
void capture_take(char c);
// the row with each byte that is part of no sequence, each control sequence's final byte and its
// only parameter byte (0 none, -1 more than one), and with rows that are passed over. `width`:
// columns of the screen.
void out_row_take(char c, int width);
void out_row_take_control(int final, int parameter);
void out_row_leave(bool from_its_start);
