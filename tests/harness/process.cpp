#include "harness/process.h"

#include <sys/syscall.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace harness {

static std::string entry(pid_t pid, const char *name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

// Its first words are the number of the call and the arguments in hexadecimal; "running" or nothing
// when there is none or the reader has no right to it.
static void read_call(pid_t pid, Nap &nap) {
    std::ifstream in(entry(pid, "syscall"));
    long number = 0;
    std::string fds, count, ppoll_timeout, error_fds, select_timeout;
    if (!(in >> number >> fds >> count >> ppoll_timeout >> error_fds >> select_timeout)) return;
    nap.known = true;
    nap.endless_wait = (number == SYS_ppoll && ppoll_timeout == "0x0") ||
                       (number == SYS_pselect6 && select_timeout == "0x0");
}

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
    std::ifstream(entry(pid, "schedstat")) >> nap.processor_ns;
    if (nap.state == 'S') read_call(pid, nap);
    return nap;
}

std::vector<pid_t> children(pid_t pid) {
    std::ifstream in(entry(pid, "task/") + std::to_string(pid) + "/children");
    std::vector<pid_t> found;
    for (pid_t child = 0; in >> child;) found.push_back(child);
    return found;
}

std::string executable(pid_t pid) {
    std::error_code unreadable;
    return std::filesystem::read_symlink(entry(pid, "exe"), unreadable);
}

}  // namespace harness
