// refuse.cpp: linked into a morp of the tests in front of the system's tcsetattr. A program that
// runs in it says which of the next changes to the user's terminal fail: with the file "refuse" in
// the working folder, one digit for each change, 1 refused, 0 not.
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>
#include <cerrno>
#include <cstddef>

extern "C" {
// The linker's names for the system's call and its replacement (--wrap).
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
int __real_tcsetattr(int fd, int actions, const termios *settings);
int __wrap_tcsetattr(int fd, int actions, const termios *settings);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
}

static bool refused() {
    char digits[16] = {};
    const int fd = open("refuse", O_RDWR | O_CLOEXEC);
    if (fd < 0) return false;
    const ssize_t n = read(fd, digits, sizeof digits);
    // The digit is used up.
    const bool kept = n > 0 && ftruncate(fd, n - 1) == 0 &&
                      pwrite(fd, digits + 1, static_cast<std::size_t>(n - 1), 0) == n - 1;
    (void)close(fd);
    return kept && digits[0] == '1';
}

int __wrap_tcsetattr(int fd, int actions, const termios *settings) {
    if (fd == STDIN_FILENO && refused()) {
        errno = EPERM;
        return -1;
    }
    return __real_tcsetattr(fd, actions, settings);
}
