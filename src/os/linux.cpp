// linux.cpp: see os.h. What is asked of /proc is read anew each time.
#include "os.h"

#ifdef MORP_LINUX

#include <dirent.h>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

const int kNoAutomount = AT_NO_AUTOMOUNT;

int os_poll(struct pollfd *fds, nfds_t count, long timeout_ns, const sigset_t *mask) {
    constexpr long kSecond = 1'000'000'000;
    const struct timespec limit = {timeout_ns / kSecond, timeout_ns % kSecond};
    return ppoll(fds, count, timeout_ns < 0 ? nullptr : &limit, mask);
}

void os_serve_signals(const sigset_t *mask) { (void)os_poll(nullptr, 0, 0, mask); }

bool os_take_signal(int sig) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    constexpr struct timespec kAtOnce = {};
    return sigtimedwait(&set, nullptr, &kAtOnce) == sig;
}

int os_reopen_terminal(int fd, int flags) {
    char path[] = "/proc/self/fd/0";
    path[sizeof path - 2] = static_cast<char>('0' + fd);
    return open(path, flags);
}

int os_open_slave(int master, int flags) {
    // Found without its name, which another root may lack.
    const int peer = ioctl(master, TIOCGPTPEER, flags);
    if (peer >= 0) return peer;
    const char *name = ptsname(master);
    return name == nullptr ? -1 : open(name, flags);
}

void os_take_terminal(int) {}  // opening it was enough

bool os_signal_foreground(int master, int sig) { return ioctl(master, TIOCSIG, sig) == 0; }

int os_pipe(int ends[2]) { return pipe2(ends, O_CLOEXEC); }

// Where cores are piped to a program, a limit of size is no bound.
void os_no_core() { (void)prctl(PR_SET_DUMPABLE, 0UL); }

void os_short_sleeps() { (void)prctl(PR_SET_TIMERSLACK, 1UL); }

// Reads /proc/PID/NAME into `text` (`size` bytes), NUL-terminated. False when it can't be read.
static bool read_proc(pid_t pid, const char *name, char *text, std::size_t size) {
    char path[64];
    (void)snprintf(path, sizeof path, "/proc/%d/%s", static_cast<int>(pid), name);
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const ssize_t n = read(fd, text, size - 1);
    (void)close(fd);
    text[n > 0 ? n : 0] = '\0';
    return n > 0;
}

SignalUse os_signal_use(pid_t pid, int sig) {
    char status[4096];
    if (!read_proc(pid, "status", status, sizeof status)) return SignalUse::unknown;
    for (const char *field : {"SigCgt:", "SigIgn:"}) {
        const char *at = strstr(status, field);
        if (at == nullptr) return SignalUse::unknown;
        const unsigned long long set = strtoull(at + strlen(field), nullptr, 16);
        if ((set >> (sig - 1) & 1) != 0) return SignalUse::other;
    }
    return SignalUse::default_;
}

pid_t os_parent_of(pid_t pid) {
    char stat[512];
    int parent = 0;
    if (!read_proc(pid, "stat", stat, sizeof stat)) return -1;
    const char *behind_name = strrchr(stat, ')');
    if (behind_name == nullptr || sscanf(behind_name, ") %*c %d", &parent) != 1) return -1;
    return parent;
}

static std::size_t read_link(const char *link, char *path, std::size_t size) {
    const ssize_t n = readlink(link, path, size);
    return n > 0 ? static_cast<std::size_t>(n) : 0;
}

std::size_t os_folder_of(pid_t pid, char *path, std::size_t size) {
    char link[64];
    (void)snprintf(link, sizeof link, "/proc/%d/cwd", static_cast<int>(pid));
    return read_link(link, path, size);
}

std::size_t os_path_of(int fd, char *path, std::size_t size) {
    char link[64];
    (void)snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    return read_link(link, path, size);
}

int os_open_folder_of(pid_t pid) {
    char link[64];
    (void)snprintf(link, sizeof link, "/proc/%d/cwd", static_cast<int>(pid));
    return open(link, O_PATH | O_DIRECTORY | O_CLOEXEC);
}

std::size_t os_mounts(char *table, std::size_t size) {
    std::size_t len = 0;
    const int fd = open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    while (len < size) {
        const ssize_t n = read(fd, table + len, size - len);
        if (n <= 0) break;  // what could not be read is not known
        len += static_cast<std::size_t>(n);
    }
    (void)close(fd);  // nothing was written
    return len;
}

static NameKind kind_of(int type) {
    switch (type) {
        case DT_DIR:
            return NameKind::folder;
        case DT_LNK:
            return NameKind::link;
        case DT_UNKNOWN:
            return NameKind::unknown;
        default:
            return NameKind::other;
    }
}

// In blocks that the system fills, without a copy of all names.
const char *os_next_name(FolderNames &names, NameKind &kind) {
    alignas(64) static char block[64 * 1024];  // as other large ones: then the small stand together
    names.stream = block;
    if (names.at >= names.size) {
        names.at = 0;
        names.size = getdents64(names.fd, block, sizeof block);
        if (names.size <= 0) return nullptr;  // its end; what can't be read is not there
    }
    const auto *entry = reinterpret_cast<const dirent64 *>(block + names.at);
    names.at += entry->d_reclen;
    kind = kind_of(entry->d_type);
    return entry->d_name;
}

void os_end_names(FolderNames &) {}

void os_purge(std::FILE *file) { __fpurge(file); }

const void *os_last_byte(const void *data, int c, std::size_t len) { return memrchr(data, c, len); }

#endif
