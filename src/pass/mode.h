// mode.h: who reads the user's keys, and the mode of the user's terminal that follows.
#pragma once

enum class KeyReader {
    program,  // the terminal is raw and silent: every key is the program's
    editor,   // raw: an editor takes each key
    driver,   // the terminal's own driver collects and echoes a line that vi style begins
};
KeyReader wanted_mode();
// The user wants editing (not 0) or not, and has it whatever the program's terminal is like.
void want_editing(int wanted);
// Looks at the program's terminal: whether editing may be in force. Returns 0, -1 when its settings
// can't be read.
int check_fd_mode(int fd);
// Puts the user's terminal into the mode that is wanted, or ends with a message.
void assert_user_mode();
