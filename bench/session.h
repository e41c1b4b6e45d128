// session.h: one run of a program on a pseudo-terminal of its own, whose other end is drained at
// full speed: the user's side of every measurement.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace bench {

using Words = std::vector<std::string>;

// Monotonic seconds.
double now();
double median(std::vector<double> values);
// Ends the process with a message. A wait for more than a minute comes here too.
[[noreturn]] void fail(const std::string &message);

class Session {
public:
    // Starts `argv` on a terminal of 24 rows and 80 columns, with `env` ("NAME=value") as its whole
    // environment.
    Session(const Words &argv, const Words &env);
    // Hangs up and waits for the end.
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void type(std::string_view keys);
    // Reads until `text` has come, behind what earlier calls waited for.
    void wait(std::string_view text);
    // Waits for the end of the process.
    void wait_end();
    // What has come and was not waited for.
    const std::string &unread() const { return seen_; }

    pid_t pid() const { return pid_; }
    double started() const { return started_; }
    // Processor time of the process, its children not included, in seconds.
    double processor() const;
    // Proportional share of memory, KiB.
    double memory() const;
    // Times that the process went to sleep or was put off the processor.
    long switches() const;

private:
    void read_more();

    int master_ = -1;
    pid_t pid_ = -1;
    double started_ = 0;
    std::string seen_;
};

// Confines this process, and what it starts, to one processor, or gives it back all.
void one_processor(bool on);
// Seconds that a command takes, its output thrown away. It has to end with status 0.
double time_of(const Words &argv, const Words &env);

}  // namespace bench
