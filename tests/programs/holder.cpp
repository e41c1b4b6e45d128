// holder: what a job-control shell is to morp. It leads the session of a pseudo-terminal, runs one
// command on it as the foreground job, takes the terminal back when the job stops or ends, and does
// as it is told over descriptor 3, a socket:
//   f  continue the job in the foreground      b  continue it in the background
//   q  (or end of file) kill everything and end
// It reports, one line each:
//   P PID     the job's process       S SIGNAL  the job stopped
//   E STATUS  the job ended, with its status as wait() gives it
//   N         no descendant is left, orphans of the job included
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr int kControl = 3;
pid_t job = -1;
bool job_ended = false;
bool job_stopped = false;
bool told_empty = false;

void report(char what, long value) {
    char line[64];
    const int len = snprintf(line, sizeof line, "%c %ld\n", what, value);
    // The test may be gone already; there is nobody else to tell.
    (void)!write(kControl, line, static_cast<size_t>(len));
}

void on_child(int) {}

// As a shell does: the kernel tells of a hang-up only the leader of the session.
void on_hang_up(int) {
    if (job <= 0 || job_ended) return;
    kill(-job, SIGHUP);
    // Only then: the leak check at a process's end hangs when a SIGCONT comes into it.
    if (job_stopped) kill(-job, SIGCONT);
}

void set_foreground(pid_t group) {
    // Fails once the terminal was hung up, which is a case under test.
    (void)tcsetpgrp(0, group);
}

[[noreturn]] void run_job(char **argv) {
    setpgid(0, 0);
    set_foreground(getpid());
    for (int sig = 1; sig < NSIG; ++sig) signal(sig, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execvp(argv[0], argv);
    perror(argv[0]);
    _exit(126);
}

// Collects what happened to the children. The orphans that a job leaves behind come here too.
void collect() {
    int status = 0;
    pid_t pid = 0;
    while ((pid = waitpid(-1, &status, WNOHANG | WUNTRACED)) > 0) {
        if (pid != job) continue;
        set_foreground(getpgrp());
        if (WIFSTOPPED(status)) {
            job_stopped = true;
            report('S', WSTOPSIG(status));
        } else {
            job_ended = true;
            report('E', status);
        }
    }
    if (pid < 0 && errno == ECHILD && job_ended && !told_empty) {
        told_empty = true;
        report('N', 0);
    }
}

// Kills every descendant: children die, their own children come here as orphans and die next.
void kill_all() {
    const std::string list = "/proc/self/task/" + std::to_string(getpid()) + "/children";
    for (;;) {
        FILE *file = fopen(list.c_str(), "r");
        long pid = 0;
        while (file && fscanf(file, "%ld", &pid) == 1) kill(static_cast<pid_t>(pid), SIGKILL);
        if (file) fclose(file);
        if (waitpid(-1, nullptr, 0) < 0 && errno == ECHILD) return;
    }
}

bool obey(char order) {
    if (order == 'f') set_foreground(job);
    if ((order == 'f' || order == 'b') && !job_ended) {
        job_stopped = false;
        kill(-job, SIGCONT);
    }
    return order != 'q';
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) return 2;
    fcntl(kControl, F_SETFD, FD_CLOEXEC);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (int sig : {SIGINT, SIGQUIT, SIGTSTP, SIGTTIN, SIGTTOU, SIGPIPE}) signal(sig, SIG_IGN);
    struct sigaction action {};
    action.sa_handler = on_child;
    sigaction(SIGCHLD, &action, nullptr);
    action.sa_handler = on_hang_up;
    sigaction(SIGHUP, &action, nullptr);
    // Served while it waits for orders only.
    sigset_t served, open;
    sigemptyset(&served);
    sigaddset(&served, SIGCHLD);
    sigaddset(&served, SIGHUP);
    sigprocmask(SIG_BLOCK, &served, &open);
    sigdelset(&open, SIGCHLD);
    sigdelset(&open, SIGHUP);

    job = fork();
    if (job == 0) run_job(argv + 1);
    setpgid(job, job);
    set_foreground(job);
    report('P', job);
    for (;;) {
        collect();
        pollfd control{kControl, POLLIN, 0};
        if (ppoll(&control, 1, nullptr, &open) <= 0) continue;
        char order = 'q';
        if (read(kControl, &order, 1) <= 0) order = 'q';
        if (!obey(order)) break;
    }
    kill_all();
    return 0;
}
