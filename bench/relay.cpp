// relay.cpp: the least that a program between terminal and program can do: one poll, one read of up
// to 64 KiB, one write. The yardstick that morp is measured beside.
//
// relay [-o] program [arguments...]    -o leaves the terminal's output processing on, as editing
// must
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static struct termios User;
static struct winsize Size;

[[noreturn]] static void fail(const char *what) {
    perror(what);
    exit(1);
}

[[noreturn]] static void become_program(int master, char **argv) {
    (void)setsid();
    const char *name = ptsname(master);
    const int slave = name == nullptr ? -1 : open(name, O_RDWR);
    if (slave < 0) fail("relay: slave");
    (void)tcsetattr(slave, TCSANOW, &User);
    (void)ioctl(slave, TIOCSWINSZ, &Size);
    for (int fd = 0; fd <= STDERR_FILENO; fd++) (void)dup2(slave, fd);
    (void)close(slave);
    (void)execvp(argv[0], argv);
    fail("relay: exec");
}

// Passes on what `from` holds. False at its end.
static bool pass(int from, int to) {
    static char data[65536];
    ssize_t len = read(from, data, sizeof data);
    if (len <= 0) return len < 0 && errno == EINTR;
    for (const char *at = data; len > 0;) {
        const ssize_t n = write(to, at, static_cast<size_t>(len));
        if (n < 0 && errno != EINTR) return false;
        if (n < 0) continue;
        at += n;
        len -= n;
    }
    return true;
}

int main(int argc, char **argv) {
    const bool output_processing = argc > 1 && strcmp(argv[1], "-o") == 0;
    argv += output_processing ? 2 : 1;
    if (argv[0] == nullptr) {
        (void)fprintf(stderr, "usage: relay [-o] program [arguments...]\n");
        return 1;
    }
    if (tcgetattr(STDIN_FILENO, &User) != 0) fail("relay: terminal");
    (void)ioctl(STDIN_FILENO, TIOCGWINSZ, &Size);
    const int master = open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) fail("relay: master");
    const pid_t pid = fork();
    if (pid < 0) fail("relay: fork");
    if (pid == 0) become_program(master, argv);
    struct termios raw = User;
    cfmakeraw(&raw);
    if (output_processing) raw.c_oflag = User.c_oflag;
    (void)tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    struct pollfd fds[] = {{STDIN_FILENO, POLLIN, 0}, {master, POLLIN, 0}};
    for (bool on = true; on;) {
        if (poll(fds, 2, -1) < 0 && errno != EINTR) break;
        if (fds[0].revents != 0) on = pass(STDIN_FILENO, master);
        if (on && fds[1].revents != 0) on = pass(master, STDOUT_FILENO);
    }
    (void)tcsetattr(STDIN_FILENO, TCSANOW, &User);
    (void)waitpid(pid, nullptr, WNOHANG);
    return 0;
}
