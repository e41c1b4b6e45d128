// gate: asks for a password as ssh does, on the terminal itself, and then takes commands as a
// remote shell without an editor would: each is answered with [command], "exit" ends. The first
// argument is the password; after three wrong ones it ends with status 255.
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

// One line from the terminal without its newline; false at end of input.
bool get_line(int fd, std::string &line) {
    line.clear();
    char c = 0;
    while (read(fd, &c, 1) == 1) {
        if (c == '\n') return true;
        line += c;
    }
    return false;
}

// What was typed before the question is thrown away with the switch, as every careful program does.
bool ask(int tty, std::string &answer) {
    termios before{};
    if (tcgetattr(tty, &before) != 0) return false;
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
    tcsetattr(tty, TCSAFLUSH, &silent);
    dprintf(tty, "me@gate's password: ");
    const bool answered = get_line(tty, answer);
    dprintf(tty, "\n");
    tcsetattr(tty, TCSAFLUSH, &before);
    return answered;
}

bool admitted(int tty, const char *password) {
    std::string answer;
    for (int tries = 3; tries > 0 && ask(tty, answer); --tries) {
        if (answer == password) return true;
        if (tries > 1) dprintf(tty, "Permission denied, please try again.\n");
    }
    dprintf(tty, "Permission denied.\n");
    return false;
}

}  // namespace

int main(int argc, char **argv) {
    const int tty = open("/dev/tty", O_RDWR);
    if (tty < 0 || argc < 2) return 2;
    if (!admitted(tty, argv[1])) return 255;
    std::string command;
    for (dprintf(tty, "gate$ "); get_line(tty, command) && command != "exit";
         dprintf(tty, "gate$ "))
        dprintf(tty, "[%s]\n", command.c_str());
    return 0;
}
