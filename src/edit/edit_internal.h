// edit_internal.h: what the files of the edit module share.
#pragma once

void edit_reset_terminal();
void edit_reset_keys();
void edit_reset_prime();
