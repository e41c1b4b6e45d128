// process.h: what /proc tells about another process.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace harness {

// How a process lies at one moment.
struct Nap {
    char state = '?';     // as in /proc: R, S, T, Z ...; '?' when there is no such process
    long voluntary = -1;  // times it went to sleep, and times it was put off the processor
    long involuntary = -1;
    long processor_ns = 0;  // time on the processor so far
    // The system call in which it sleeps waits for descriptors, and without a time limit. Where the
    // kernel does not tell (`known` false) the caller has to judge by time.
    bool known = false;
    bool endless_wait = false;
};
Nap nap(pid_t pid);

std::vector<pid_t> children(pid_t pid);
// Path of the executable, empty when it cannot be read.
std::string executable(pid_t pid);

}  // namespace harness
