#include "figures.h"

#include <unistd.h>
#include <cstdio>
#include <fstream>

#include "session.h"

namespace bench {

using Values = std::vector<double>;

static constexpr double kMilli = 1e3;
static constexpr double kMicro = 1e6;
static constexpr double kMega = 1e6;

static constexpr int kStarts = 20;      // starts in one round
static constexpr int kKeys = 2000;      // keys in one round
static constexpr int kLines = 200;      // lines in one round
static constexpr int kPasted = 60;      // lines of a paste
static constexpr int kLineLength = 60;  // keys to a line, far from the right margin
static constexpr int kCommands = 1'000'000;
static constexpr int kBlocks = 256;
static constexpr double kBlockBytes = 65536;
static constexpr int kWrites = 40'000;  // writes of a line, or of a byte
static constexpr double kLineBytes = 64;
static constexpr unsigned kIdleSeconds = 3;

static const char kOldest[] = "the oldest of all commands";
static const char kNewest[] = "the newest of all commands";
static const char kBig[] = "/big_history";
static const char kTyped[] = "/typed_history";  // as big, but lines are added to it
static const char kSmall[] = "/few_history";

// Who stands between the terminal and the program.
enum class Front { morp, morp_off, raw_relay, processing_relay, script };

static Words command(const Setting &s, Front front, const Words &load) {
    Words words;
    switch (front) {
        case Front::morp:
            words = {s.morp};
            break;
        case Front::morp_off:
            words = {s.morp, "-m", "0"};
            break;
        case Front::raw_relay:
            words = {s.relay};
            break;
        case Front::processing_relay:
            words = {s.relay, "-o"};
            break;
        case Front::script: {
            std::string line = s.load;
            for (const std::string &word : load) line += " " + word;
            return {"/usr/bin/script", "-qfc", line, "/dev/null"};
        }
    }
    words.push_back(s.load);
    words.insert(words.end(), load.begin(), load.end());
    return words;
}

static Words environment(const Setting &s, const std::string &history,
                         const char *more = "TERM=xterm") {
    return {"PATH=/usr/local/bin:/usr/bin:/bin",
            "HOME=" + s.folder,
            "SHELL=/bin/sh",
            "VISUAL=emacs",
            "Q_VXHISTFILE=" + s.folder + history,
            more};
}

static const char kOwn[] = "/history";  // what is typed here goes to this file

// Contenders that differ in the front only: morp's, the relay to compare it with, script.
static std::vector<Contender> beside(Front morp, Front relay,
                                     const std::function<Values(Front)> &run) {
    return {{"morp", [=] { return run(morp); }},
            {"relay", [=] { return run(relay); }},
            {"script", [=] { return run(Front::script); }}};
}

// --- Start ---

static Values starts(const Setting &s, Front front, const std::string &history) {
    Values prompt;
    Values life;
    for (int i = 0; i < kStarts; i++) {
        Session session(command(s, front, {"once"}), environment(s, history));
        session.wait("> ");
        prompt.push_back(now() - session.started());
        session.type("x\r");
        session.wait_end();
        life.push_back(now() - session.started());
    }
    return {median(prompt), median(life)};
}

// --- Output ---

static Values output(const Setting &s, Front front, const Words &load, double bytes) {
    Session session(command(s, front, load), environment(s, kOwn));
    session.wait("<go>");
    const double from = now();
    const double busy = session.processor();
    session.wait("<end>");
    const double wall = now() - from;
    return {wall / bytes * kMega, (session.processor() - busy) / bytes * kMega};
}

static Measurement output_measurement(const Setting &s, const char *name, Front morp, Front relay,
                                      const Words &load, double bytes, std::vector<Row> rows) {
    return {name, std::move(rows),
            beside(morp, relay, [=](Front front) { return output(s, front, load, bytes); })};
}

// --- Keys and lines, all on one processor ---

class OneProcessor {
public:
    OneProcessor() { one_processor(true); }
    ~OneProcessor() { one_processor(false); }
    OneProcessor(const OneProcessor &) = delete;
    OneProcessor &operator=(const OneProcessor &) = delete;
};

static Values keys(const Setting &s, Front front) {
    const OneProcessor confined;
    Session session(command(s, front, {"answer"}), environment(s, kOwn));
    session.wait("> ");
    Values times;
    for (int i = 1; i <= kKeys; i++) {
        const double from = now();
        session.type("a");
        session.wait("a");
        times.push_back(now() - from);
        if (i % kLineLength != 0) continue;
        session.type("\r");
        session.wait("> ");
    }
    return {median(times)};
}

static Values lines(const Setting &s, Front front) {
    const OneProcessor confined;
    Session session(command(s, front, {"answer"}), environment(s, kOwn));
    session.wait("> ");
    Values times;
    for (int i = 0; i < kLines; i++) {
        session.type("ab");
        session.wait("b");
        const double from = now();
        session.type("\r");
        session.wait("> ");
        times.push_back(now() - from);
    }
    return {median(times)};
}

// A line that is lost is never answered, and the run fails.
static Values paste(const Setting &s, Front front) {
    Session session(command(s, front, {"answer"}), environment(s, kOwn));
    session.wait("> ");
    std::string text;
    for (int i = 1; i <= kPasted; i++) text += "line " + std::to_string(i) + "\r";
    const double from = now();
    session.type(text);
    for (int i = 1; i <= kPasted; i++) session.wait("<line " + std::to_string(i) + ">");
    return {now() - from};
}

// --- Rest at the prompt ---

static Values memory(const Setting &s, Front front) {
    Session session(command(s, front, {"answer"}), environment(s, kOwn));
    session.wait("> ");
    session.type("x\r");
    session.wait("> ");
    return {session.memory()};
}

static Values idle(const Setting &s, Front front) {
    Session session(command(s, front, {"answer"}), environment(s, kOwn));
    session.wait("> ");
    session.type("x\r");
    session.wait("> ");
    session.type("y");
    session.wait("y");
    (void)usleep(200'000);  // what the line caused is over
    const long before = session.switches();
    (void)sleep(kIdleSeconds);
    return {static_cast<double>(session.switches() - before)};
}

// --- History ---

static void put_command(std::string &file, int number, const std::string &text) {
    constexpr std::size_t kSyncFrom = 8192;
    file += text + "\n";
    file.append(file.size() % 2 != 0 ? 1 : 2, '\0');
    if (file.size() <= kSyncFrom) return;
    const int next = number + 1;
    for (const int byte : {0x82, 0, next >> 16, next >> 8, next, 0})
        file += static_cast<char>(byte);
}

static void write_history(const std::string &path, int commands) {
    std::string file = "\x81\x01";
    put_command(file, 1, kOldest);
    for (int n = 2; n < commands; n++)
        put_command(file, n, "grep -n pattern" + std::to_string(n) + " src/file.cpp");
    put_command(file, commands, kNewest);
    std::ofstream(path, std::ios::binary) << file;
}

static Values first_recall(const Setting &s, const char *history) {
    Session session(command(s, Front::morp, {"answer"}), environment(s, history));
    session.wait("> ");
    const double from = now();
    session.type("\x10");
    session.wait(kNewest);
    return {now() - from};
}

static Values all_in_reach(const Setting &s) {
    Session session(command(s, Front::morp, {"answer"}),
                    environment(s, kBig, "Q_VXHISTSIZE=1000000"));
    session.wait("> ");
    const double from = now();
    session.type("a");
    session.wait("a");
    const double indexed = now();
    session.type("\x12oldest of all");
    session.wait("all");
    const double asked = now();
    session.type("\r");
    session.wait(kOldest);
    return {indexed - from, now() - asked};
}

static Values grep(const Setting &s) {
    const double time =
        time_of({"/usr/bin/grep", "-c", "-a", kOldest, s.folder + kBig}, {"LC_ALL=C"});
    return {time, time};
}

// --- System calls ---

// Calls that morp makes in a run in which `count` times `keys` are typed, then the program is
// ended.
static double calls(const Setting &s, Front front, int count, std::string_view keys,
                    std::string_view last) {
    const std::string trace = s.folder + "/trace";
    Words words = command(s, front, {"answer"});
    words.insert(words.begin(), {"/usr/bin/strace", "-qq", "-o", trace});
    {
        Session session(words, environment(s, kOwn));
        session.wait("> ");
        for (int i = 0; i < count; i++) {
            session.type(keys);
            session.wait(last);
        }
        session.type("c\r");
        session.wait("> ");
        session.type("end\r");
        session.wait_end();
    }
    std::ifstream file(trace);
    double found = 0;
    for (std::string line; std::getline(file, line);) found++;
    return found;
}

static Values calls_each(const Setting &s, Front front) {
    constexpr int kFew = 5;
    constexpr int kMany = 55;
    constexpr double kMore = kMany - kFew;
    return {(calls(s, front, kMany, "a", "a") - calls(s, front, kFew, "a", "a")) / kMore,
            (calls(s, front, kMany, "b\r", "> ") - calls(s, front, kFew, "b\r", "> ")) / kMore};
}

// --- The table ---

static void add_output(const Setting &s, std::vector<Measurement> &list) {
    using enum Front;
    const std::string blocks = std::to_string(kBlocks);
    const std::string writes = std::to_string(kWrites);
    list.push_back(output_measurement(
        s, "blocks", morp, processing_relay, {"blocks", blocks}, kBlocks * kBlockBytes,
        {{"output in 64 KiB blocks, editing on", "ms/MB", kMilli, Bar::ratio, 1.15},
         {"- processor time", "ms/MB", kMilli, Bar::ratio, 1.25}}));
    list.push_back(output_measurement(
        s, "blocks-raw", morp, raw_relay, {"blocks", "raw", blocks}, kBlocks * kBlockBytes,
        {{"the same from a program in raw mode", "ms/MB", kMilli, Bar::ratio, 1.35},
         {"- processor time", "ms/MB", kMilli, Bar::ratio, 1.75}}));
    list.push_back(output_measurement(
        s, "blocks-off", morp_off, raw_relay, {"blocks", blocks}, kBlocks * kBlockBytes,
        {{"the same with editing off", "ms/MB", kMilli, Bar::ratio, 1.35},
         {"- processor time", "ms/MB", kMilli, Bar::ratio, 1.75}}));
    list.push_back(output_measurement(
        s, "lines", morp, processing_relay, {"lines", writes}, kWrites * kLineBytes,
        {{"output a line a write, editing on", "ms/MB", kMilli, Bar::ratio, 1.4},
         {"- processor time", "ms/MB", kMilli, Bar::ratio, 1.5}}));
    list.push_back(
        output_measurement(s, "bytes", morp, processing_relay, {"bytes", writes}, kWrites,
                           {{"output a byte a write, editing on", "ms/MB", kMilli, Bar::ratio, 1.1},
                            {"- processor time", "ms/MB", kMilli, Bar::ratio, 1.35}}));
}

static void add_latency(const Setting &s, std::vector<Measurement> &list) {
    using enum Front;
    list.push_back({"keys",
                    {{"key to echo at an emacs prompt", "µs", kMicro, Bar::ratio, 1.1}},
                    beside(morp, raw_relay, [=](Front front) { return keys(s, front); })});
    list.push_back({"keys-off",
                    {{"key to echo with editing off", "µs", kMicro, Bar::ratio, 1.45}},
                    beside(morp_off, raw_relay, [=](Front front) { return keys(s, front); })});
    list.push_back({"newline",
                    {{"newline to answer and next prompt", "µs", kMicro, Bar::ratio, 2.4}},
                    beside(morp, raw_relay, [=](Front front) { return lines(s, front); })});
    list.push_back({"paste",
                    {{"paste of 60 lines to the last answer", "ms", kMilli, Bar::ratio, 10}},
                    beside(morp, raw_relay, [=](Front front) { return paste(s, front); })});
}

static void add_rest(const Setting &s, std::vector<Measurement> &list) {
    using enum Front;
    list.push_back({"memory",
                    {{"memory at a prompt (PSS)", "KiB", 1, Bar::ratio, 6}},
                    beside(morp, raw_relay, [=](Front front) { return memory(s, front); })});
    list.push_back(
        {"idle",
         {{"wake-ups in 3 s at a prompt", "", 1, Bar::absolute, 0}},
         {{"morp", [=] { return idle(s, morp); }}, {"relay", [=] { return idle(s, raw_relay); }}}});
    list.push_back({"calls",
                    {{"system calls a key", "", 1, Bar::absolute, 8},
                     {"system calls a line", "", 1, Bar::absolute, 60}},
                    {{"morp", [=] { return calls_each(s, morp); }},
                     {"relay", [=] { return calls_each(s, raw_relay); }}}});
}

static void add_history(const Setting &s, std::vector<Measurement> &list) {
    using enum Front;
    list.push_back({"start-big",
                    {{"first prompt, history of 1,000,000", "ms", kMilli, Bar::ratio, 1.4},
                     {"- life of one line", "ms", kMilli, Bar::none, 0}},
                    {{"morp", [=] { return starts(s, morp, kTyped); }},
                     {"relay", [=] { return starts(s, raw_relay, kTyped); }}}});
    list.push_back({"recall",
                    {{"first ^P in it, beside a file of 3", "ms", kMilli, Bar::ratio, 2}},
                    {{"morp", [=] { return first_recall(s, kBig); }},
                     {"few", [=] { return first_recall(s, kSmall); }}}});
    list.push_back(
        {"reach",
         {{"1,000,000 in reach: indexed, beside grep", "ms", kMilli, Bar::ratio, 3},
          {"1,000,000 in reach: ^R to the oldest", "ms", kMilli, Bar::ratio, 3}},
         {{"morp", [=] { return all_in_reach(s); }}, {"grep", [=] { return grep(s); }}}});
}

std::vector<Measurement> measurements(const Setting &s) {
    using enum Front;
    write_history(s.folder + kBig, kCommands);
    write_history(s.folder + kTyped, kCommands);
    write_history(s.folder + kSmall, 3);
    std::vector<Measurement> list;
    list.push_back({"start",
                    {{"first prompt", "ms", kMilli, Bar::ratio, 1.4},
                     {"life of a program that reads one line", "ms", kMilli, Bar::ratio, 1.5}},
                    beside(morp, raw_relay, [=](Front front) { return starts(s, front, kOwn); })});
    add_output(s, list);
    add_latency(s, list);
    add_rest(s, list);
    add_history(s, list);
    return list;
}

}  // namespace bench
