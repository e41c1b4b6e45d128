// proc.cpp: see proc.h. Asked anew for each question; where the system doesn't tell, the answer is
// the one that changes nothing. No catcher enters it.
#include "proc.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/types.h>
#include <unistd.h>
#include <climits>
#include <csignal>
#include <initializer_list>

#include "edit/remote.h"
#include "os.h"
#include "run.h"

bool program_stops_by_default() { return os_signal_use(Child_pid, SIGTSTP) == SignalUse::default_; }

bool can_be_continued() {
    const pid_t group = getpgrp();
    const pid_t session = getsid(0);
    for (pid_t above = os_parent_of(getpid()); above > 1; above = os_parent_of(above)) {
        if (getsid(above) != session) return false;
        const pid_t its_group = getpgid(above);
        if (its_group > 0 && its_group != group) return true;
    }
    return false;
}

int open_program_folder() {
    pid_t group = 0;
    if (ioctl(master_fd, TIOCGPGRP, &group) != 0) group = 0;
    for (const pid_t pid : {group, Child_pid, getpid()}) {
        if (pid <= 1) continue;
        char folder[PATH_MAX];
        const std::size_t n = os_folder_of(pid, folder, sizeof folder - 1);  // asks nobody
        if (n == 0) continue;
        folder[n] = '\0';
        if (is_remote(AT_FDCWD, folder)) return -1;
        const int fd = os_open_folder_of(pid);
        if (fd >= 0) return fd;
    }
    return -1;
}
