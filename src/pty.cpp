// pty.cpp: see pty.h. The child reports a failed start by one byte through a pipe that a successful
// exec closes, so the parent knows which it was whatever order signals arrive in.
#include "pty.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "msg.h"
#include "os.h"
#include "run.h"
#include "wait.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp pty 1.0";

static constexpr std::size_t kNameSize = 26;
static char pty_name[kNameSize];
static char pty_name_slave[kNameSize];
tcflag_t pty_input_flags = 0;
static int pty_slavefd = -1;  // in the child only
static int Start_pipe = -1;   // read end of the report pipe, -1 once the report is in
static pid_t Parent = 0;      // morp, for the child

int pty_master() {
    memcpy(pty_name_slave, "<UNSET>", sizeof "<UNSET>");
    pty_name_slave[kNameSize - 1] = '\0';
    const int fd = posix_openpt(O_RDWR | O_NOCTTY);
    if (fd < 0) return fd;
    (void)fcntl(fd, F_SETFD, FD_CLOEXEC);
    (void)grantpt(fd);  // a slave that can't be opened is reported by the child
    (void)unlockpt(fd);
    const char *name = ptsname(fd);
    if (name != nullptr) (void)snprintf(pty_name_slave, kNameSize, "%s", name);
    return fd;
}

int pty_slave(int master) {
    const int fd = open(pty_name_slave, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        const int err = errno;
        (void)close(master);
        errno = err;
        return -1;
    }
    return fd;
}

char *pty_dname() { return pty_name; }

char *pty_dname_slave() { return pty_name_slave; }

void pty_pkt_enable(int fd) {
    const int one = 1;
    // Without its headers the program's output can't be told from status reports.
    if (ioctl(fd, TIOCPKT, &one) != 0) fatal("can't set packet mode on master pty");
}

int pty_open_peer(int master) {
    return os_open_slave(master, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

// In the child: reports a failed start, whose message has been composed, and ends. `status`: see
// pty_start_status.
[[noreturn]] static void child_fail(int report, unsigned char status) {
    perror(Message_buf);
    // Whoever else is the parent by now must not be ended.
    if (write(report, &status, 1) != 1 && Parent > 1 && getppid() == Parent)
        (void)kill(Parent, SIGTERM);
    _exit(1);
}

[[noreturn]] static void become_program(int master, int report, char **argv_p) {
    (void)setsid();
    (void)setpgid(0, 0);  // a session leader leads its group already
    pty_slavefd = pty_slave(master);
    if (pty_slavefd < 0) {
        message_format("%s: can't open pty slave (\"%s\")", Program_name, pty_dname_slave());
        child_fail(report, 1);
    }
    os_take_terminal(pty_slavefd);
    (void)close(master);
    tty_info settings = Tty_original;
    settings.tty_termios.c_iflag |= pty_input_flags;
    if (tty_info_set(pty_slavefd, &settings) != 0) {
        message_format("%s: problem setting 'stty' settings on pty", Program_name);
        child_fail(report, 1);
    }
    bool placed = true;
    for (int fd = 0; fd <= STDERR_FILENO && placed; fd++) placed = dup2(pty_slavefd, fd) == fd;
    if (!placed) {
        message_format("%s: dup error when trying to create shell", Program_name);
        child_fail(report, 1);
    }
    signals_restore();
    (void)execvp(argv_p[0], argv_p);
    const int err = errno;
    message_format("%s: execvp error when trying to create shell", Program_name);
    errno = err;
    child_fail(report, err == ENOENT ? 127 : 126);
}

pid_t pty_fork(int *mfd, char **argv_p) {
    const int master = pty_master();
    if (master < 0) {
        message_format("%s: can't open master pty (\"%s\")", Program_name, pty_dname());
        perror(Message_buf);
        finish(1);
    }
    int report[2];
    if (os_pipe(report) != 0) fatal("can't fork child process");
    Parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) fatal("can't fork child process");
    if (pid == 0) {
        (void)close(report[0]);
        become_program(master, report[1], argv_p);
    }
    (void)close(report[1]);
    Start_pipe = report[0];
    // A blocking write to a full pseudo-terminal would keep the program's output from being read.
    (void)fcntl(master, F_SETFL, O_RDWR | O_NONBLOCK);
    *mfd = master;
    return pid;
}

int pty_start_status() {
    unsigned char status = 0;
    ssize_t n = 0;
    do {
        struct pollfd fd = {Start_pipe, POLLIN, 0};
        n = -1;
        if (wait_ready(&fd, 1, kNoTimeout) > 0)
            n = read(Start_pipe, &status, 1);
        else if (errno != EINTR)
            break;
    } while (n < 0 && (errno == EINTR || errno == EAGAIN));
    (void)close(Start_pipe);
    Start_pipe = -1;
    return n > 0 ? status : 0;
}
