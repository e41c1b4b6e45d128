// proc.cpp: what /proc tells of the program and of those above morp. Read anew for each question;
// where it can't be read, the answer is the one that changes nothing. No catcher enters it.
#include "proc.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <unistd.h>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "edit/remote.h"
#include "run.h"

// True when /proc says that signal `sig` is in the set that `field` of the program's status names,
// or when it can't be asked.
static bool in_signal_set(const char *status, const char *field, int sig) {
    const char *at = strstr(status, field);
    if (at == nullptr) return true;
    const unsigned long long set = strtoull(at + strlen(field), nullptr, 16);
    return (set >> (sig - 1) & 1) != 0;
}

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

bool program_stops_by_default() {
    char status[4096];
    if (!read_proc(Child_pid, "status", status, sizeof status)) return false;
    return !in_signal_set(status, "SigCgt:", SIGTSTP) && !in_signal_set(status, "SigIgn:", SIGTSTP);
}

bool can_be_continued() {
    const pid_t group = getpgrp();
    const pid_t session = getsid(0);
    pid_t parent = getppid();
    while (parent > 1 && getsid(parent) == session) {
        const pid_t its_group = getpgid(parent);
        if (its_group > 0 && its_group != group) return true;
        char stat[512];
        if (!read_proc(parent, "stat", stat, sizeof stat)) return false;
        const char *behind_name = strrchr(stat, ')');
        int next = 0;
        if (behind_name == nullptr || sscanf(behind_name, ") %*c %d", &next) != 1) return false;
        parent = next;
    }
    return false;
}

int open_program_folder() {
    pid_t group = 0;
    if (ioctl(master_fd, TIOCGPGRP, &group) != 0) group = 0;
    for (const pid_t pid : {group, Child_pid, getpid()}) {
        if (pid <= 1) continue;
        char path[64];
        (void)snprintf(path, sizeof path, "/proc/%d/cwd", static_cast<int>(pid));
        char folder[PATH_MAX];
        const ssize_t n = readlink(path, folder, sizeof folder - 1);  // asks nobody
        if (n <= 0) continue;
        folder[n] = '\0';
        if (is_remote(AT_FDCWD, folder)) return -1;
        const int fd = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (fd >= 0) return fd;
    }
    return -1;
}
