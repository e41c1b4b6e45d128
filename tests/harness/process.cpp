#include "harness/process.h"

#include <limits.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace harness {
namespace {

std::string entry(pid_t pid, const char *name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

// Its first words are the number of the call and the arguments in hexadecimal; "running" or nothing
// when there is none or the reader has no right to it.
void read_call(pid_t pid, Nap &nap) {
    std::ifstream in(entry(pid, "syscall"));
    long number = 0;
    std::string fds, count, timeout;
    if (!(in >> number >> fds >> count >> timeout)) return;
    nap.known = true;
    nap.endless_wait = number == SYS_ppoll && timeout == "0x0";
}

}  // namespace

Nap nap(pid_t pid) {
    Nap nap;
    std::ifstream in(entry(pid, "status"));
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string key;
        words >> key;
        if (key == "State:")
            words >> nap.state;
        else if (key == "voluntary_ctxt_switches:")
            words >> nap.voluntary;
        else if (key == "nonvoluntary_ctxt_switches:")
            words >> nap.involuntary;
    }
    if (nap.state == 'S') read_call(pid, nap);
    return nap;
}

std::vector<pid_t> children(pid_t pid) {
    std::ifstream in(entry(pid, "task/") + std::to_string(pid) + "/children");
    std::vector<pid_t> found;
    for (pid_t child = 0; in >> child;) found.push_back(child);
    return found;
}

pid_t foreground_group(pid_t pid) {
    std::ifstream in(entry(pid, "stat"));
    std::string line;
    std::getline(in, line);
    // Behind the name, which may hold anything: state, parent, group, session, terminal, group.
    std::istringstream words(line.substr(std::min(line.size(), line.rfind(')') + 1)));
    char state = 0;
    pid_t parent = 0, group = 0, session = 0, foreground = -1;
    int terminal = 0;
    words >> state >> parent >> group >> session >> terminal >> foreground;
    return foreground;
}

std::string executable(pid_t pid) {
    char path[PATH_MAX];
    const ssize_t len = readlink(entry(pid, "exe").c_str(), path, sizeof path);
    return len > 0 ? std::string(path, static_cast<std::size_t>(len)) : std::string();
}

}  // namespace harness
