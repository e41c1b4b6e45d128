#include "figures.h"

#include <unistd.h>
#include <cstdio>
#include <fstream>
#include <utility>

#include "history_file.h"

namespace bench {

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
static const char kOwn[] = "/history";  // what is typed goes to this file
static const char kBig[] = "/big_history";
static const char kTyped[] = "/typed_history";  // as big, but lines are added to it
static const char kSmall[] = "/few_history";

// State: set by measurements(), the same for all that is measured.
static Setting Here;

const std::vector<Style> &styles() {
    static const char more[] = "Q_VXEXTENDED=1";
    static const std::vector<Style> list = {
        {"emacs", {"Q_VXEDITOR=emacs"}, "a", "a", "\x10", "\x12"},
        {"vi", {"Q_VXEDITOR=vi"}, "\033ia", "\r> a", "\033k", "\033/"},
        {"emacs-extended", {"Q_VXEDITOR=emacs", more}, "a", "a", "\x10", "\x12"},
        {"vi-extended", {"Q_VXEDITOR=vi", more}, "a", "a", "\033k", "\033/"},
    };
    return list;
}

// Who stands between the terminal and the program.
enum class Front { morp, morp_off, raw_relay, processing_relay, script };

struct Who {
    Front front;
    Style style;  // empty but for morp
};

static const Style kNoStyle = {"", {}, "a", "a", "", ""};

static Words joined(Words words, const Words &more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

static Words command(const Who &who, const Words &load) {
    const Words program = joined({Here.load}, load);
    switch (who.front) {
        case Front::morp:
            return joined({Here.morp}, program);
        case Front::morp_off:
            return joined({Here.morp, "-m", "0"}, program);
        case Front::raw_relay:
            return joined({Here.relay}, program);
        case Front::processing_relay:
            return joined({Here.relay, "-o"}, program);
        case Front::script:
            break;
    }
    std::string line;
    for (const std::string &word : program) line += word + " ";
    return {"/usr/bin/script", "-qfc", line, "/dev/null"};
}

static Words environment(const Who &who, const char *history) {
    return joined({"PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + Here.folder, "SHELL=/bin/sh",
                   "TERM=xterm", "LC_ALL=C.UTF-8", "Q_VXHISTFILE=" + Here.folder + history},
                  who.style.env);
}

// The program that answers lines, at its first prompt.
struct Answer : Session {
    // `more` for the environment, `tracer` in front of the command.
    explicit Answer(const Who &who, const char *history = kOwn, const Words &more = {},
                    const Words &tracer = {})
        : Session(joined(tracer, command(who, {"answer"})),
                  joined(environment(who, history), more)) {
        wait("> ");
    }
    void edit(const Style &style) {
        type(style.edit);
        wait(style.shown);
    }
    void enter(std::string_view keys) {
        type(std::string(keys) + "\r");
        wait("> ");
    }
};

// --- Start ---

static Values starts(const Who &who, const char *history) {
    Values prompt;
    Values life;
    for (int i = 0; i < kStarts; i++) {
        Session session(command(who, {"once"}), environment(who, history));
        session.wait("> ");
        prompt.push_back(now() - session.started());
        session.type("x\r");
        session.wait_end();
        life.push_back(now() - session.started());
    }
    return {median(prompt), median(life)};
}

// --- Output ---

static Values output(const Who &who, const Words &load, double bytes) {
    Session session(command(who, load), environment(who, kOwn));
    session.wait("<go>");
    const double from = now();
    const double busy = session.processor();
    session.wait("<end>");
    const double wall = now() - from;
    return {wall / bytes * kMega, (session.processor() - busy) / bytes * kMega};
}

// --- Keys and lines, all on one processor ---

class OneProcessor {
public:
    OneProcessor() { one_processor(true); }
    ~OneProcessor() { one_processor(false); }
    OneProcessor(const OneProcessor &) = delete;
    OneProcessor &operator=(const OneProcessor &) = delete;
};

// Neighbouring keys differ, so that what is drawn late isn't taken for the next one's echo.
static Values keys(const Who &who) {
    const OneProcessor confined;
    Answer session(who);
    Values times;
    for (int i = 0; i < kKeys; i++) {
        if (i != 0 && i % kLineLength == 0) session.enter("");
        if (i % kLineLength == 0) session.edit(who.style);
        const std::string key(1, static_cast<char>('b' + i % 25));
        const double from = now();
        session.type(key);
        session.wait(key);
        times.push_back(now() - from);
    }
    return {median(times)};
}

static Values lines(const Who &who) {
    const OneProcessor confined;
    Answer session(who);
    Values times;
    for (int i = 0; i < kLines; i++) {
        session.type("ab");
        session.wait("b");
        const double from = now();
        session.type("\r");
        session.wait("<ab>");
        session.wait("> ");
        times.push_back(now() - from);
    }
    return {median(times)};
}

// A line that is lost is never answered, and the run fails.
static Values paste(const Who &who) {
    Answer session(who);
    std::string text;
    for (int i = 1; i <= kPasted; i++) text += "line " + std::to_string(i) + "\r";
    const double from = now();
    session.type(text);
    for (int i = 1; i <= kPasted; i++) session.wait("<line " + std::to_string(i) + ">");
    return {now() - from};
}

// --- Rest at the prompt ---

static Values memory(const Who &who) {
    Answer session(who);
    session.enter("x");
    return {session.memory()};
}

static Values idle(const Who &who) {
    Answer session(who);
    session.enter("x");
    session.edit(who.style);
    (void)usleep(200'000);  // what the line caused is over
    const long before = session.switches();
    (void)sleep(kIdleSeconds);
    return {static_cast<double>(session.switches() - before)};
}

// --- History ---

static double first_recall(const Who &who, const char *history) {
    Answer session(who, history);
    const double from = now();
    session.type(who.style.recall);
    session.wait(kNewest);
    return now() - from;
}

static Values first_recalls(const Style &style) {
    const double big = first_recall({Front::morp, style}, kBig);
    return {big, big / first_recall({Front::morp, style}, kSmall)};
}

static Values all_in_reach(const Who &who) {
    Answer session(who, kBig, {"Q_VXHISTSIZE=1000000"});
    const double from = now();
    session.edit(who.style);
    const double indexed = now();
    session.type(std::string(who.style.search) + "oldest of all");
    session.wait("all");
    const double asked = now();
    session.type("\r");
    session.wait(kOldest);
    return {indexed - from, now() - asked};
}

static Values grep() {
    const double time =
        time_of({"/usr/bin/grep", "-c", "-a", kOldest, Here.folder + kBig}, {"LC_ALL=C"});
    return {time, time};
}

// --- System calls ---

// Calls that are made in a run in which `count` times `keys` are typed into a line that is being
// edited, then the program is ended.
static double calls(const Who &who, int count, std::string_view keys, std::string_view last) {
    const std::string trace = Here.folder + "/trace";
    {
        Answer session(who, kOwn, {}, {"/usr/bin/strace", "-qq", "-o", trace});
        session.edit(who.style);
        for (int i = 0; i < count; i++) {
            session.type(keys);
            session.wait(last);
        }
        session.enter("c");
        session.type("end\r");
        session.wait_end();
    }
    std::ifstream file(trace);
    double found = 0;
    for (std::string line; std::getline(file, line);) found++;
    return found;
}

static Values calls_each(const Who &who) {
    constexpr int kFew = 5;
    constexpr int kMany = 55;
    constexpr double kMore = kMany - kFew;
    return {(calls(who, kMany, "a", "a") - calls(who, kFew, "a", "a")) / kMore,
            (calls(who, kMany, "b\r", "> ") - calls(who, kFew, "b\r", "> ")) / kMore};
}

// --- The table ---

// What differs in the front only: morp's, the relay to compare it with, script where it can.
static Measurement beside(const char *name, Front morp, Front relay,
                          const std::function<Values(const Who &)> &run, std::vector<Row> rows,
                          bool script = true) {
    Measurement m = {name, std::move(rows),
                     [=](const Style &style) {
                         return run({morp, style});
                     },
                     [=] {
                         return run({relay, kNoStyle});
                     }};
    if (script) m.script = [=] { return run({Front::script, kNoStyle}); };
    m.any_style = morp == Front::morp_off;
    return m;
}

static Measurement output_beside(const char *name, Front morp, Front relay, const Words &load,
                                 double bytes, const char *what, double bar, double busy_bar) {
    return beside(name, morp, relay, [=](const Who &who) { return output(who, load, bytes); },
                  {{what, "ms/MB", kMilli, Bar::ratio, bar},
                   {"- processor time", "ms/MB", kMilli, Bar::ratio, busy_bar}});
}

static void add_output(std::vector<Measurement> &list) {
    using enum Front;
    const std::string blocks = std::to_string(kBlocks);
    const std::string writes = std::to_string(kWrites);
    constexpr double kAllBlocks = kBlocks * kBlockBytes;
    list.push_back(output_beside("blocks", morp, processing_relay, {"blocks", blocks}, kAllBlocks,
                                 "output in 64 KiB blocks, editing on", 1.15, 1.25));
    list.push_back(output_beside("blocks-raw", morp, raw_relay, {"blocks", "raw", blocks},
                                 kAllBlocks, "the same from a program in raw mode", 1.35, 1.75));
    list.push_back(output_beside("blocks-off", morp_off, raw_relay, {"blocks", blocks}, kAllBlocks,
                                 "the same with editing off", 1.35, 1.75));
    list.push_back(output_beside("lines", morp, processing_relay, {"lines", writes},
                                 kWrites * kLineBytes, "output a line a write, editing on", 1.4,
                                 1.5));
    list.push_back(output_beside("bytes", morp, processing_relay, {"bytes", writes}, kWrites,
                                 "output a byte a write, editing on", 1.1, 1.35));
}

static void add_latency(std::vector<Measurement> &list) {
    using enum Front;
    list.push_back(beside("keys", morp, raw_relay, keys,
                          {{"key to echo in a line", "µs", kMicro, Bar::ratio, 1.1}}));
    list.push_back(beside("keys-off", morp_off, raw_relay, keys,
                          {{"key to echo with editing off", "µs", kMicro, Bar::ratio, 1.45}}));
    list.push_back(beside("newline", morp, raw_relay, lines,
                          {{"newline to answer and next prompt", "µs", kMicro, Bar::ratio, 2.4}}));
    list.push_back(
        beside("paste", morp, raw_relay, paste,
               {{"paste of 60 lines to the last answer", "ms", kMilli, Bar::ratio, 15}}));
}

static void add_rest(std::vector<Measurement> &list) {
    using enum Front;
    list.push_back(beside("memory", morp, raw_relay, memory,
                          {{"memory at a prompt (PSS)", "KiB", 1, Bar::ratio, 6}}));
    list.push_back(beside("idle", morp, raw_relay, idle,
                          {{"wake-ups in 3 s in a line", "", 1, Bar::absolute, 0}}, false));
    list.push_back(beside("calls", morp, raw_relay, calls_each,
                          {{"system calls a key", "", 1, Bar::absolute, 8},
                           {"system calls a line", "", 1, Bar::absolute, 60}},
                          false));
}

static void add_history(std::vector<Measurement> &list) {
    using enum Front;
    list.push_back(beside(
        "start-big", morp, raw_relay, [](const Who &who) { return starts(who, kTyped); },
        {{"first prompt, history of 1,000,000", "ms", kMilli, Bar::ratio, 1.4},
         {"- life of one line", "ms", kMilli, Bar::none, 0}},
        false));
    list.push_back({"recall",
                    {{"first line recalled from it", "ms", kMilli, Bar::none, 0},
                     {"- by that from a file of 3", "", 1, Bar::absolute, 2}},
                    first_recalls});
    list.push_back({"reach",
                    {{"1,000,000 in reach: indexed, beside grep", "ms", kMilli, Bar::ratio, 3},
                     {"1,000,000 in reach: search to the oldest", "ms", kMilli, Bar::ratio, 3}},
                    [](const Style &style) {
                        return all_in_reach({morp, style});
                    },
                    grep});
}

std::vector<Measurement> measurements(const Setting &setting) {
    using enum Front;
    Here = setting;
    write_history(Here.folder + kBig, kCommands, kOldest, kNewest);
    write_history(Here.folder + kTyped, kCommands, kOldest, kNewest);
    write_history(Here.folder + kSmall, 3, kOldest, kNewest);
    std::vector<Measurement> list;
    list.push_back(
        beside("start", morp, raw_relay, [](const Who &who) { return starts(who, kOwn); },
               {{"first prompt", "ms", kMilli, Bar::ratio, 1.4},
                {"life of a program that reads one line", "ms", kMilli, Bar::ratio, 1.5}}));
    add_output(list);
    add_latency(list);
    add_rest(list);
    add_history(list);
    return list;
}

}  // namespace bench
