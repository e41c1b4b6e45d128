// portable.cpp: see os.h. What no POSIX call tells is not known, and those who asked go on as
// where /proc can't be read.
#include "os.h"

#ifndef MORP_LINUX

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>

const int kNoAutomount = 0;

// ---- Waiting. pselect is the one wait with a mask that every system has, and some have no poll
// for terminals.

struct Sets {
    fd_set read, write, urgent;
};

// Sets what is asked for. Returns one more than the highest descriptor, -1 when one is out of
// range.
static int fill(Sets &sets, const struct pollfd *fds, nfds_t count) {
    int above = 0;
    FD_ZERO(&sets.read);
    FD_ZERO(&sets.write);
    FD_ZERO(&sets.urgent);
    for (nfds_t i = 0; i < count; i++) {
        const int fd = fds[i].fd;
        if (fd < 0) continue;
        if (fd >= FD_SETSIZE) return -1;
        if ((fds[i].events & POLLIN) != 0) FD_SET(fd, &sets.read);
        if ((fds[i].events & POLLOUT) != 0) FD_SET(fd, &sets.write);
        if ((fds[i].events & POLLPRI) != 0) FD_SET(fd, &sets.urgent);
        if (fd >= above) above = fd + 1;
    }
    return above;
}

int os_poll(struct pollfd *fds, nfds_t count, long timeout_ns, const sigset_t *mask) {
    constexpr long kSecond = 1'000'000'000;
    const struct timespec limit = {timeout_ns / kSecond, timeout_ns % kSecond};
    Sets sets;
    const int above = fill(sets, fds, count);
    if (above < 0) {
        errno = EINVAL;
        return -1;
    }
    const int ready = pselect(above, &sets.read, &sets.write, &sets.urgent,
                              timeout_ns < 0 ? nullptr : &limit, mask);
    if (ready < 0) return -1;
    int found = 0;
    for (nfds_t i = 0; i < count; i++) {
        const int fd = fds[i].fd;
        int events = 0;
        if (ready > 0 && fd >= 0) {
            if (FD_ISSET(fd, &sets.read)) events |= fds[i].events & POLLIN;
            if (FD_ISSET(fd, &sets.write)) events |= fds[i].events & POLLOUT;
            if (FD_ISSET(fd, &sets.urgent)) events |= fds[i].events & POLLPRI;
        }
        fds[i].revents = static_cast<short>(events);
        if (events != 0) found++;
    }
    return found;
}

// One is served at least when the mask opens; while there are more, it opens again.
void os_serve_signals(const sigset_t *mask) {
    sigset_t shut;
    (void)sigprocmask(SIG_SETMASK, mask, &shut);
    (void)sigprocmask(SIG_SETMASK, &shut, nullptr);
}

static void taken(int) {}

bool os_take_signal(int sig) {
    sigset_t pending;
    if (sigpending(&pending) != 0 || sigismember(&pending, sig) != 1) return false;
    // Served by a catcher that does nothing.
    struct sigaction nothing = {};
    struct sigaction found = {};
    sigset_t all_but;
    nothing.sa_handler = taken;
    (void)sigaction(sig, &nothing, &found);
    (void)sigprocmask(SIG_SETMASK, nullptr, &all_but);
    sigdelset(&all_but, sig);
    os_serve_signals(&all_but);
    (void)sigaction(sig, &found, nullptr);
    return true;
}

// ---- Terminals.

int os_reopen_terminal(int fd, int flags) {
    struct stat given = {};
    struct stat opened = {};
    const char *name = ttyname(fd);
    if (name == nullptr || fstat(fd, &given) != 0) return -1;
    const int own = open(name, flags);
    // Where roots differ, the name may be another terminal's.
    if (own >= 0 && fstat(own, &opened) == 0 && opened.st_rdev == given.st_rdev) return own;
    if (own >= 0) (void)close(own);
    return -1;
}

int os_open_slave(int master, int flags) {
    const char *name = ptsname(master);
    return name == nullptr ? -1 : open(name, flags);
}

void os_take_terminal(int fd) {
#ifdef TIOCSCTTY
    (void)ioctl(fd, TIOCSCTTY, 0);  // where opening it was enough there is nothing left to do
#endif
}

bool os_signal_foreground(int, int) { return false; }

// ---- Processes.

int os_pipe(int ends[2]) {
    if (pipe(ends) != 0) return -1;
    (void)fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    (void)fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    return 0;
}

void os_no_core() {}

void os_short_sleeps() {}

SignalUse os_signal_use(pid_t, int) { return SignalUse::unknown; }

pid_t os_parent_of(pid_t pid) { return pid == getpid() ? getppid() : -1; }

// ---- Files.

// Of no process but this one.
std::size_t os_folder_of(pid_t pid, char *path, std::size_t size) {
    return pid == getpid() && getcwd(path, size) != nullptr ? strlen(path) : 0;
}

std::size_t os_path_of(int, char *, std::size_t) { return 0; }

int os_open_folder_of(pid_t pid) {
    return pid == getpid() ? open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
}

std::size_t os_mounts(char *, std::size_t) { return 0; }

const char *os_next_name(FolderNames &names, NameKind &kind) {
    if (names.stream == nullptr) {
        const int fd = fcntl(names.fd, F_DUPFD_CLOEXEC, 0);
        names.stream = fd < 0 ? nullptr : fdopendir(fd);
        if (names.stream == nullptr) {
            if (fd >= 0) (void)close(fd);
            return nullptr;
        }
    }
    const struct dirent *entry = readdir(static_cast<DIR *>(names.stream));
    kind = NameKind::unknown;
    return entry == nullptr ? nullptr : entry->d_name;
}

void os_end_names(FolderNames &names) {
    if (names.stream != nullptr) (void)closedir(static_cast<DIR *>(names.stream));
    names.stream = nullptr;
}

// Nothing takes bytes back from a stream, so they go where nobody reads them.
void os_purge(std::FILE *file) {
    const int fd = fileno(file);
    const int kept = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (kept >= 0 && sink >= 0 && dup2(sink, fd) == fd) {
        (void)std::fflush(file);
        (void)dup2(kept, fd);
        (void)fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    if (kept >= 0) (void)close(kept);
    if (sink >= 0) (void)close(sink);
}

// ---- Text.

const void *os_last_byte(const void *data, int c, std::size_t len) {
    const auto *bytes = static_cast<const unsigned char *>(data);
    while (len > 0)
        if (bytes[--len] == static_cast<unsigned char>(c)) return bytes + len;
    return nullptr;
}

#endif
