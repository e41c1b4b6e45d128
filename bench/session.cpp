#include "session.h"

#include <fcntl.h>
#include <pty.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>

namespace bench {

static constexpr unsigned kPatience = 60;  // seconds

double now() {
    struct timespec t = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

double median(std::vector<double> values) {
    const std::size_t n = values.size();
    if (n == 0) fail("a figure without a value");
    std::sort(values.begin(), values.end());
    return n % 2 != 0 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

void fail(const std::string &message) {
    (void)fprintf(stderr, "bench: %s\n", message.c_str());
    exit(1);
}

static std::vector<char *> pointers(const Words &words) {
    std::vector<char *> list;
    for (const std::string &word : words) list.push_back(const_cast<char *>(word.c_str()));
    list.push_back(nullptr);
    return list;
}

static void out_of_patience(int) {}  // the call that waits is interrupted

static void watch_time() {
    struct sigaction action = {};
    action.sa_handler = out_of_patience;
    (void)sigaction(SIGALRM, &action, nullptr);
    (void)alarm(kPatience);
}

Session::Session(const Words &argv, const Words &env) {
    const std::vector<char *> args = pointers(argv);
    const std::vector<char *> vars = pointers(env);
    struct winsize size = {24, 80, 0, 0};
    int slave = -1;
    if (openpty(&master_, &slave, nullptr, nullptr, &size) != 0) fail("no pseudo-terminal");
    (void)fcntl(master_, F_SETFD, FD_CLOEXEC);
    started_ = now();
    pid_ = fork();
    if (pid_ == 0) {
        if (login_tty(slave) == 0) (void)execvpe(args[0], args.data(), vars.data());
        perror(args[0]);
        _exit(127);
    }
    (void)close(slave);
    if (pid_ < 0) fail("no process");
}

Session::~Session() {
    (void)close(master_);
    if (pid_ <= 0) return;
    (void)kill(pid_, SIGTERM);  // script takes no notice of the hang-up
    wait_end();
}

void Session::type(std::string_view keys) {
    while (!keys.empty()) {
        const ssize_t n = write(master_, keys.data(), keys.size());
        if (n < 0) fail("the terminal takes no keys");
        keys.remove_prefix(static_cast<std::size_t>(n));
    }
}

void Session::read_more() {
    char data[65536];
    const ssize_t n = read(master_, data, sizeof data);
    if (n < 0 && errno == EINTR) fail("what was to come has not come: " + seen_);
    if (n <= 0) fail("the program ended early: " + seen_);
    seen_.append(data, static_cast<std::size_t>(n));
}

void Session::wait(std::string_view text) {
    constexpr std::size_t kKept = 4096;
    watch_time();
    std::size_t from = 0;
    for (;;) {
        const std::size_t at = seen_.find(text, from);
        if (at != std::string::npos) {
            seen_.erase(0, at + text.size());
            break;
        }
        if (seen_.size() > 64 * kKept) seen_.erase(0, seen_.size() - kKept);
        from = seen_.size() < text.size() ? 0 : seen_.size() - text.size() + 1;
        read_more();
    }
    (void)alarm(0);
}

void Session::wait_end() {
    watch_time();
    if (waitpid(pid_, nullptr, 0) != pid_) fail("the program has not ended");
    (void)alarm(0);
    pid_ = -1;
}

double Session::processor() const {
    clockid_t clock = 0;
    struct timespec t = {};
    if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &t) != 0)
        fail("no processor time");
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// Sum of the numbers behind the lines of /proc/PID/NAME that contain `field`.
static long sum_of(pid_t pid, const std::string &name, const std::string &field) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/" + name);
    long sum = 0;
    bool found = false;
    for (std::string line; std::getline(file, line);) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos || line.substr(0, colon).find(field) == std::string::npos)
            continue;
        sum += atol(line.c_str() + colon + 1);
        found = true;
    }
    if (!found) fail("no " + field + " in " + name);
    return sum;
}

double Session::memory() const {
    std::ifstream file("/proc/" + std::to_string(pid_) + "/smaps_rollup");
    for (std::string line; std::getline(file, line);)
        if (line.rfind("Pss:", 0) == 0) return atof(line.c_str() + 4);
    fail("no memory map");
}

long Session::switches() const { return sum_of(pid_, "status", "ctxt_switches"); }

void one_processor(bool on) {
    static cpu_set_t all;
    static bool known = false;
    if (!known) {
        (void)sched_getaffinity(0, sizeof all, &all);
        known = true;
    }
    cpu_set_t set = all;
    if (on) {
        int cpu = CPU_SETSIZE - 1;
        while (cpu > 0 && !CPU_ISSET(cpu, &all)) cpu--;
        CPU_ZERO(&set);
        CPU_SET(cpu, &set);
    }
    if (sched_setaffinity(0, sizeof set, &set) != 0) fail("can't choose a processor");
}

double time_of(const Words &argv, const Words &env) {
    const std::vector<char *> args = pointers(argv);
    const std::vector<char *> vars = pointers(env);
    int out[2];  // not /dev/null: grep looks for no more than one match then
    if (pipe2(out, O_CLOEXEC) != 0) fail("no pipe");
    const double from = now();
    const pid_t pid = fork();
    if (pid == 0) {
        (void)dup2(out[1], STDOUT_FILENO);
        (void)execvpe(args[0], args.data(), vars.data());
        _exit(127);
    }
    (void)close(out[1]);
    char data[256];
    while (read(out[0], data, sizeof data) > 0) {
    }
    (void)close(out[0]);
    int status = -1;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) fail("no process");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) fail("can't run " + argv[0]);
    return now() - from;
}

}  // namespace bench
