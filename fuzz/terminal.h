// terminal.h: what an editor finds when it is started: the user's terminal and the environment.
#pragma once

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "extended.h"
#include "require.h"
#include "tty.h"

namespace fuzz {

// The user's terminal, the same for the whole process.
inline void set_terminal(int choice) {
    static const bool kOpen = [] {
        const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        require(grantpt(master) == 0 && unlockpt(master) == 0);
        const int slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
        return dup2(slave, STDIN_FILENO) == STDIN_FILENO &&
               tcgetattr(STDIN_FILENO, &Tty_original.tty_termios) == 0;
    }();
    static constexpr char kErase[] = {'\x7f', '\b', '\0', '#'};
    static constexpr char kKill[] = {'\x15', '@', '\x18', '\0'};
    static constexpr char kEof[] = {'\4', '\4', 'e', '\0'};
    termios &t = Tty_original.tty_termios;
    t.c_cc[VINTR] = t.c_cc[VQUIT] = t.c_cc[VSUSP] = 0;
    t.c_cc[VERASE] = static_cast<cc_t>(kErase[choice & 3]);
    t.c_cc[VKILL] = static_cast<cc_t>(kKill[choice >> 2 & 3]);
    t.c_cc[VEOF] = static_cast<cc_t>(kEof[choice >> 4 & 3]);
    require(kOpen && tcsetattr(STDIN_FILENO, TCSANOW, &t) == 0);
}

// In extended mode the terminal knows its `columns`, unless they are 0.
inline void set_environment(const char *style, int columns) {
    Tty_original.tty_winsize.ws_col = static_cast<unsigned short>(Extended != 0 ? columns : 0);
    setenv("COLUMNS", std::to_string(columns).c_str(), 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    setenv("Q_VXEDITOR", style, 1);
    setenv("Q_VXHISTFILE", "", 1);
    setenv("Q_VXHISTSIZE", "4", 1);
    unsetenv("Q_VXWORDS");
}

}  // namespace fuzz
