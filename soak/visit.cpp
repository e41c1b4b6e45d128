#include "visit.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "harness/process.h"

namespace fs = std::filesystem;
using harness::Mode;
using harness::visible;

namespace soak {

const char *const kRecorder =
    "printf '> '; while IFS= read -r x; do "
    "printf '%s\\n' \"$x\" >>got; printf '<%s>\\n> ' \"$x\"; done";

namespace {

constexpr std::size_t kActionsKept = 40;
constexpr int kColumns = 80;  // as morp is told; the window is never narrower
constexpr const char *kOuterPrompt = "outer$ ";

enum Trait : unsigned {
    any_program = 0,
    prompts = 1,      // a new prompt after each line and each ^C
    records = 2,      // lines are compared to the byte
    shell = 4,        // runs others
    stops = 8,        // ^Z stops it
    interrupts = 16,  // lives on after ^C
    toggles = 32      // the toggle may be in its history: no wild keys, which could recall it
};

const Program kPrograms[] = {
    {"recorder", kRecorder, "> ", "", "", "<", ">", "\4", prompts | records | stops},
    {"dash", "exec dash", "$ ", "echo '", "'", "", "", "exit\r",
     prompts | shell | interrupts | toggles},
    {"python3", "exec python3 -I -q", ">>> ", "print('", "')", "", "", "quit()\r",
     prompts | stops | interrupts | toggles},
    {"sqlite3", "exec sqlite3 -batch", "", "select '", "';", "", "", ".quit\r", toggles},
    {"bc", "bc -q | cat", "", "0+", "+0", "", "", "quit\r", toggles},
};

[[noreturn]] void fault(const std::string &what) { throw std::runtime_error(what); }

std::string trimmed(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string all_of(const fs::path &file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

Lines split(const std::string &text) {
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

class Visit {
public:
    Visit(State &state, const Program &program);
    void run();

private:
    friend struct Table;
    std::size_t roll(std::size_t n) { return below(state_.random, n); }
    bool has(unsigned trait) const { return (program_.traits & trait) == trait; }
    std::string text();
    std::string line_of(const std::string &words) const {
        return program_.before + words + program_.after;
    }
    std::string answer_of(const std::string &words) const {
        return program_.answer_before + words + program_.answer_after;
    }
    bool fits(const std::string &line) const;

    // The user's hands.
    void send(const std::string &keys);
    void type_line(const std::string &line);
    void enter(const std::string &line);
    // The checks.
    void wait_row(const std::string &text);
    void rest();
    void answered(const std::string &line, const std::string &answer);
    void expect_recorded(const std::string &line);
    void check_received();
    void check_history(const std::string &perhaps);
    void left_alone(bool restored);

    void start();
    // Actions.
    void one_line();
    void ahead();
    void wild();
    void resize();
    void interrupt();
    void suspend();
    void job();
    void toggle();
    void secret();
    void background();
    void plain_line();
    void pager();
    void editor();
    void size();
    void end();
    void wait_end(int status, bool restored);

    State &state_;
    const Program &program_;
    const bool vi_;
    const bool outer_;
    const bool kept_;  // there is a history file
    const std::string file_;
    Lines own_;     // history of a run without a file
    Lines &typed_;  // all that has to be in the history
    Lines got_;     // all that the recorder has to have received
    std::string style_;
    std::unique_ptr<Session> session_;
    std::size_t descriptors_ = 0;

    struct Action {
        const char *name;
        std::size_t weight;
        unsigned traits;
        void (Visit::*act)();
    };
    static const Action kActions[];
};

const Visit::Action Visit::kActions[] = {
    {"line", 40, any_program, &Visit::one_line},
    {"typed ahead", 8, any_program, &Visit::ahead},
    {"wild keys", 10, records, &Visit::wild},
    {"resize", 5, any_program, &Visit::resize},
    {"interrupt", 6, interrupts, &Visit::interrupt},
    {"suspend", 5, any_program, &Visit::suspend},
    {"job", 4, shell, &Visit::job},
    {"toggle", 3, toggles, &Visit::toggle},
    {"secret", 3, shell, &Visit::secret},
    {"background", 5, shell, &Visit::background},
    {"pager", 4, shell, &Visit::pager},
    {"editor", 4, shell, &Visit::editor},
    {"size", 3, shell, &Visit::size},
};

constexpr const char *kStyles[] = {"emacs", "gmacs", "vi"};

Visit::Visit(State &state, const Program &program)
    : state_(state),
      program_(program),
      vi_(state.visits % std::ssize(kStyles) == 2),
      outer_(below(state.random, 3) == 0),
      kept_(below(state.random, 10) != 0),
      file_(state.dir + "/" + program.name),
      typed_(kept_ ? state.typed[file_] : own_),
      style_(kStyles[state.visits % std::ssize(kStyles)]) {}

// --- The user's hands ---

std::string Visit::text() {
    if (std::string(program_.name) == "bc") return std::to_string(1 + state_.random() / 2);
    std::string words = letters(state_.random, 1 + roll(9));
    const std::size_t wanted = roll(10) == 0 && has(records) ? roll(190) : roll(45);
    while (words.size() + 12 < wanted)
        words += std::string(1, " .,:-+_"[roll(7)]) + letters(state_.random, 1 + roll(9));
    static constexpr const char *kBytes[] = {"\t", "\xc3\xa4", "\xe2\x82\xac", "\xff", "\x7e"};
    if (!vi_ && has(records) && roll(8) == 0)
        words.insert(roll(words.size()), kBytes[roll(std::size(kBytes))]);
    return words;
}

// On one row, and as it is; vi keys that the terminal echoes first need some room as well.
bool Visit::fits(const std::string &line) const {
    return std::string(program_.prompt).size() + line.size() < kColumns - 14 &&
           std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c < '\x7f'; });
}

void Visit::send(const std::string &keys) {
    state_.note("  keys " + visible(keys));
    if (roll(4) != 0) return session_->type(keys);
    for (std::size_t at = 0; at < keys.size();) {
        const std::size_t n = 1 + roll(4);
        session_->type(std::string_view(keys).substr(at, n));
        at += n;
    }
}

void Visit::expect_recorded(const std::string &line) {
    ++state_.lines;
    if (!recorded(line).empty()) typed_.push_back(recorded(line));
}

void Visit::type_line(const std::string &line) {
    const Keys keys = keys_for(state_.random, line, vi_, typed_);
    state_.note(" \"" + visible(line) + "\" by " + keys.road);
    send(keys.bytes);
    if (fits(line)) wait_row(program_.prompt + line);
}

void Visit::enter(const std::string &line) {
    type_line(line);
    send("\r");
    expect_recorded(line);
}

// --- The checks ---

// The row of the cursor is `text`, and the cursor stands behind it.
void Visit::wait_row(const std::string &text) {
    session_->wait_for("the cursor behind \"" + visible(text) + "\"", [&] {
        const auto at = session_->cursor();
        return at.col == static_cast<int>(text.size()) && session_->row(at.row) == trimmed(text);
    });
}

// The program waits for a line, nothing is typed, and morp holds what it always holds.
void Visit::rest() {
    wait_row(program_.prompt);
    session_->wait_editing(program_.prompt);
    const pid_t pid = session_->morp_pid();
    if (descriptors_ == 0) descriptors_ = descriptors(pid);
    session_->wait_for(std::to_string(descriptors_) + " descriptors of morp",
                       [&] { return descriptors(pid) == descriptors_; });
    state_.descriptors = descriptors_;
    state_.rss = std::max(state_.rss, resident(pid));
}

// Above the prompt stand the line and the answer to it.
void Visit::answered(const std::string &line, const std::string &answer) {
    if (fits(line) && fits(answer)) {
        session_->wait_for("the answer \"" + answer + "\" to \"" + line + "\"", [&] {
            const auto at = session_->cursor();
            return at.row >= 2 && session_->row(at.row) == trimmed(program_.prompt) &&
                   session_->row(at.row - 1) == trimmed(answer) &&
                   session_->row(at.row - 2) == trimmed(program_.prompt + line);
        });
    }
    if (has(records)) {
        got_.push_back(line);
        check_received();
    }
    rest();
}

void Visit::check_received() {
    session_->wait_for("the last line to be received", [&] {
        const Lines got = split(session_->file("got"));
        return got.size() >= got_.size();
    });
    check_lines("lines received", got_, split(session_->file("got")));
}

// `perhaps`: a line sent just before a kill may or may not have been taken.
void Visit::check_history(const std::string &perhaps) {
    if (!kept_ || !fs::exists(file_)) return;
    const Lines seen = history_lines(file_);
    if (!perhaps.empty() && seen.size() == typed_.size() + 1) typed_.push_back(recorded(perhaps));
    check_lines("the history", typed_, seen);
}

// No process, no file, no setting is left. A killed morp can't restore the terminal.
void Visit::left_alone(bool restored) {
    session_->wait_no_process();
    for (const auto &entry : fs::directory_iterator(session_->home())) {
        const std::string name = entry.path().filename();
        if (name != "got" && name != "page" && name != "note") fault("left behind: " + name);
    }
    if (!restored) session_->set_terminal(session_->terminal_at_start());
    session_.reset();  // its end checks the terminal and what sanitizers have said
    if (testing::UnitTest::GetInstance()->Failed()) fault("see above");
}

// --- Actions ---

void Visit::start() {
    harness::Options options;
    options.style = style_;
    options.env = {{"Q_VXHISTFILE", kept_ ? file_ : "/dev/null"},
                   {"PROGRAM", program_.command},
                   {"LESSHISTFILE", "-"},
                   {"SQLITE_HISTORY", "/dev/null"}};
    std::string page;
    for (int n = 1; n <= 200; ++n) page += "page line " + std::to_string(n) + "\n";
    options.files = {{"page", page}, {"note", "old\n"}};
    options.program = {"sh", "-c", program_.command};
    if (outer_) {
        options.outer = {"dash", "-i"};
        options.env["PS1"] = kOuterPrompt;
    }
    session_ = std::make_unique<Session>(options);
    if (outer_) {
        wait_row(kOuterPrompt);
        session_->type("PS1='$ ' $MORP -- sh -c \"$PROGRAM\"\r");
    }
    wait_row(program_.prompt);
    session_->wait_editing(program_.prompt);
}

void Visit::one_line() {
    const std::string words = text();
    const std::string line = line_of(words);
    enter(line);
    answered(line, answer_of(words));
}

// Pasted, or typed while the program is busy: several lines in one go.
void Visit::ahead() {
    const bool paste = roll(2) == 0;
    const std::size_t mark = session_->mark();
    Lines answers;
    std::string keys;
    for (std::size_t n = 2 + roll(paste ? 20 : 4); n > 0; --n) {
        const std::string words = text();
        const std::string line = line_of(words);
        keys += paste ? line : keys_for(state_.random, line, vi_, typed_).bytes;
        keys += "\r";
        expect_recorded(line);
        got_.push_back(line);
        answers.push_back(answer_of(words));
    }
    send(keys);
    if (has(records)) {
        check_received();
    } else {
        session_->wait_for("the answers, the last one \"" + answers.back() + "\"", [&] {
            const std::string seen = session_->output_since(mark);
            std::size_t at = 0;
            for (const auto &answer : answers) {
                // In front of an answer anything may stand: the echo of a line typed before its
                // prompt was there. In the line itself something follows, and where an editor
                // draws it piece by piece, no line end.
                do at = seen.find(answer + "\r", at + 1);
                while (at != std::string::npos &&
                       seen.find_first_of("\r\n", at + answer.size() + 1) !=
                           at + answer.size() + 1);
                if (at == std::string::npos) return false;
            }
            return true;
        });
    }
    rest();
}

void Visit::wild() {
    const std::size_t before = split(session_->file("got")).size();
    send(wild_keys(state_.random, vi_));
    do {
        send("\r");
        session_->wait_asleep();
    } while (session_->row(session_->cursor().row) != trimmed(program_.prompt));
    const Lines got = split(session_->file("got"));
    for (std::size_t n = before; n < got.size(); ++n) expect_recorded(got[n]);
    const bool alone = got.size() == before + 1 && fits(got.back());
    got_ = got;
    if (alone) {
        got_.pop_back();
        answered(got.back(), answer_of(got.back()));
    }
    rest();
    check_history("");
}

void Visit::resize() {
    const int rows = 12 + static_cast<int>(roll(40));
    const int cols = kColumns + static_cast<int>(roll(60));
    state_.note("  to " + std::to_string(rows) + " x " + std::to_string(cols));
    const std::string words = text();
    const std::string line = line_of(words);
    const std::size_t cut = roll(2) * roll(line.size());
    send(line.substr(0, cut));
    session_->resize(rows, cols);
    send(line.substr(cut));
    if (fits(line)) wait_row(program_.prompt + line);
    send("\r");
    expect_recorded(line);
    answered(line, answer_of(words));
}

void Visit::interrupt() {
    // python3 lets a signal wait that comes between its prompt and its read.
    const pid_t program = session_->program_pid();
    session_->wait_for("the program to read", [&] { return harness::nap(program).state == 'S'; });
    const std::size_t mark = session_->mark();
    send(letters(state_.random, 1 + roll(20)) + (vi_ && roll(2) == 0 ? "\x1b" : ""));
    if (roll(2) == 0) session_->wait_asleep();
    send("\x03");
    session_->wait_output(std::string("\n") + program_.prompt, mark);
    rest();
}

void Visit::suspend() {
    const bool key = has(stops) && roll(3) != 0;
    // The key drops what is typed, with no shell it stays on the row. Without the key vi's line
    // stays in the terminal driver, and the outer shell gets any.
    if (key ? outer_ : !vi_ && !outer_) send(letters(state_.random, roll(20)));
    if (key)
        send("\x1a");
    else
        session_->signal(SIGUSR2);
    if (outer_) {
        wait_row(kOuterPrompt);
        session_->wait_mode(Mode::original);
        session_->type("fg\r");
    } else {
        if (session_->wait_stopped() != SIGSTOP) fault("stopped by another signal");
        if (session_->mode() != Mode::original) fault("terminal not restored while stopped");
        session_->fg();
    }
    session_->wait_asleep();
    send("x\x15");  // two kills in a row mean something else
    rest();
}

// The shell's job `name` has its terminal and sleeps.
bool in_front(pid_t shell, const std::string &name) {
    const std::string stat = all_of("/proc/" + std::to_string(shell) + "/stat");
    std::istringstream behind_name(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
    std::string state;
    pid_t parent = 0, group = 0, session = 0, terminal = 0, front = -1;
    behind_name >> state >> parent >> group >> session >> terminal >> front;
    return front > 0 && harness::executable(front).ends_with("/" + name) &&
           harness::nap(front).state == 'S';
}

// A job of the shell inside morp.
void Visit::job() {
    enter("cat");
    session_->wait_for("cat to run", [&] { return in_front(session_->program_pid(), "cat"); });
    session_->wait_asleep();
    const std::string words = letters(state_.random, 5);
    send(words + "\r");
    expect_recorded(words);
    session_->wait_text(words + "\n" + words);
    send("\x1a");
    rest();
    one_line();
    enter("fg");
    session_->wait_for("cat to run", [&] { return in_front(session_->program_pid(), "cat"); });
    session_->wait_asleep();
    send("\x03");
    rest();
}

// Editing off and on again: the line between is the program's alone.
void Visit::toggle() {
    const std::size_t mark = session_->mark();
    send("~~;1\r");
    expect_recorded("~~;1");
    got_.emplace_back();
    session_->wait_mode(Mode::pass);
    if (has(prompts)) session_->wait_output(std::string("\n") + program_.prompt, mark);
    session_->wait_asleep();
    const std::string words = letters(state_.random, 3 + roll(20));
    const std::string number = std::to_string(roll(1000000) + 1);
    const bool sum = std::string(program_.name) == "bc";
    const std::string line = line_of(sum ? number : words);
    send(line.substr(0, 3) + "x\x7f" + line.substr(3));
    wait_row(program_.prompt + line);
    send("\r");
    ++state_.lines;
    const std::string answer = answer_of(sum ? number : words);
    session_->wait_output("\n" + answer + "\r", mark);
    session_->wait_asleep();
    send("~~;1");
    answered(line, answer);
}

void Visit::secret() {
    const std::string word = letters(state_.random, 1 + roll(20));
    enter("stty -echo; echo silent; read x; stty echo; echo [$x]");
    session_->wait_text("\nsilent\n");
    session_->wait_mode(Mode::pass);
    session_->wait_asleep();
    send(word + "\r");
    session_->wait_text("[" + word + "]");
    rest();
}

// Output in the middle of a line.
void Visit::background() {
    const std::string job = "( (sleep .0" + std::to_string(roll(10)) + "; echo tick) & )";
    type_line(job);
    const std::size_t mark = session_->mark();
    send("\r");
    expect_recorded(job);
    const std::string words = text();
    const std::string line = line_of(words);
    send(line.substr(0, line.size() / 2));
    session_->wait_output("tick\r", mark);
    session_->wait_asleep();
    send(line.substr(line.size() / 2) + "\r");
    expect_recorded(line);
    session_->wait_output("\n" + words + "\r", mark);
    rest();
}

// Typed as it is: behind an escape sequence (a full screen was left), or when nothing was printed
// yet, morp can't write the row again.
void Visit::plain_line() {
    const std::string words = text();
    send(line_of(words) + "\r");
    expect_recorded(line_of(words));
    answered(line_of(words), answer_of(words));
}

// No resize here: less loses a key that comes together with the signal.
void Visit::pager() {
    enter("less page");
    session_->wait_text("page line 10\n");
    session_->wait_mode(Mode::pass);
    std::string keys;
    for (std::size_t n = roll(20); n > 0; --n) keys += "jkfbGgdu"[roll(8)];
    send(keys);
    send("g/line 50\r");
    session_->wait_for("line 50 on top", [&] { return session_->row(0) == "page line 50"; });
    send("q");
    rest();
    plain_line();
}

void Visit::editor() {
    const std::string words = letters(state_.random, 1 + roll(40));
    enter("vi -u NONE -i NONE -n note");
    session_->wait_text("\n~\n~\n");
    session_->wait_mode(Mode::pass);
    send(":%d\ri" + words);
    session_->wait_for("the text typed", [&] { return session_->row(0) == words; });
    send("\x1b:wq\r");
    rest();
    if (session_->file("note") != words + "\n") fault("vi has written something else");
    plain_line();
}

void Visit::size() {
    const auto now = session_->size();
    enter("stty size");
    answered("stty size", std::to_string(now.row) + " " + std::to_string(now.col));
}

// --- The end ---

void Visit::wait_end(int status, bool restored) {
    if (outer_) {
        session_->wait_for("the outer shell", [&] {
            return session_->row(session_->cursor().row).ends_with(trimmed(kOuterPrompt));
        });
        if (!restored) session_->set_terminal(session_->terminal_at_start());
        session_->wait_mode(Mode::original);
        session_->type(
            "\x15"
            "echo ended $?\r");  // behind what vi's terminal driver still held
        session_->wait_text("ended " + std::to_string(status < 0 ? 128 - status : status) + "\n");
        session_->type("exit\r");
        session_->wait_exit();
    } else if (const int seen = session_->wait_exit(); seen != status) {
        fault("morp ended with " + std::to_string(seen) + " instead of " + std::to_string(status));
    }
}

void Visit::end() {
    const std::size_t how = roll(9);
    std::string perhaps;
    if (how > 3) {
        // In the middle of something.
        const std::size_t when = roll(4);
        if (when == 0) send(letters(state_.random, 1 + roll(20)));
        if (when == 1) send((perhaps = line_of(text())) + "\r");
        if (when == 2 && has(shell)) {
            enter("less page");
            session_->wait_text("page line 10\n");
        }
        // What is not taken yet would go to the outer shell.
        if (outer_ || roll(2) == 0) session_->wait_asleep();
        ++state_.kills;
    }
    static constexpr int kSignals[] = {SIGTERM, SIGHUP, SIGKILL};
    int status = 0;
    bool restored = true;
    if (how < 2) {
        state_.note("end of input");
        send("\4");
    } else if (how < 4) {
        state_.note("the program is told to end");
        if (*program_.quit != '\4') expect_recorded(trimmed(Lines{program_.quit}[0]));
        send(program_.quit);
    } else if (how < 6) {
        state_.note("the program is killed");
        kill(session_->program_pid(), SIGKILL);
    } else {
        const int sig = kSignals[how - 6];
        state_.note("morp gets signal " + std::to_string(sig));
        restored = sig != SIGKILL;
        status = restored ? 1 : -SIGKILL;
        session_->signal(sig);
    }
    wait_end(status, restored);
    left_alone(restored || outer_);
    check_history(perhaps);
}

void Visit::run() {
    state_.note(std::string("visit ") + std::to_string(++state_.visits) + ": " + program_.name +
                ", " + style_ + (outer_ ? ", in a shell" : "") + (kept_ ? "" : ", no history"));
    start();
    plain_line();
    descriptors_ = 0;  // the history is open from now on
    std::vector<const Action *> choice;
    for (const Action &action : kActions) {
        if (has(action.traits)) choice.insert(choice.end(), action.weight, &action);
    }
    for (std::size_t n = roll(60); n > 0; --n) {
        const Action &action = *choice[roll(choice.size())];
        ++state_.steps;
        state_.note(std::to_string(state_.steps) + " " + action.name);
        (this->*action.act)();
        if (roll(30) == 0) check_history("");
    }
    end();
}

}  // namespace

// --- What lasts ---

State::State(unsigned long long start) : seed(start), random(start) {
    std::string name = (fs::temp_directory_path() / "morp-soak-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) fault("mkdtemp");
    dir = name;
}

State::~State() { fs::remove_all(dir); }

void State::note(const std::string &what) {
    actions.push_back(what);
    if (actions.size() > kActionsKept) actions.pop_front();
}

long resident(pid_t pid) {
    for (const auto &line : split(all_of("/proc/" + std::to_string(pid) + "/status"))) {
        if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
    }
    fault("no memory of " + std::to_string(pid));
}

std::size_t descriptors(pid_t pid) {
    const fs::directory_iterator list("/proc/" + std::to_string(pid) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(list), end(list)));
}

static std::string plain(const std::string &shown) {
    std::string out;
    for (std::size_t at = 0; at < shown.size(); ++at) {
        if (shown[at] != '\\') {
            out += shown[at];
            continue;
        }
        const char c = shown[++at];
        if (c == 'x') {
            out += static_cast<char>(std::stoi(shown.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
        }
    }
    return out;
}

Lines history_lines(const std::string &file) {
    Lines lines;
    const std::string command = "'" MORP_HISTORY "' '" + file + "' 2>&1";
    FILE *tool = popen(command.c_str(), "r");  // NOLINT(cert-env33-c): no user's words in it
    if (tool == nullptr) fault("popen");
    std::string all;
    char block[4096];
    for (std::size_t n = 0; (n = fread(block, 1, sizeof block, tool)) > 0;) all.append(block, n);
    if (pclose(tool) != 0) fault("the history is damaged:\n" + all.substr(all.size() / 2));
    for (const auto &line : split(all)) {
        long number = 0;
        int text = 0;
        if (sscanf(line.c_str(), " %ld %*d%n", &number, &text) == 1 && text > 0)
            lines.push_back(plain(line.substr(static_cast<std::size_t>(text) + 2)));
    }
    return lines;
}

void check_lines(const std::string &what, const Lines &expected, const Lines &seen) {
    const std::size_t n = std::min(expected.size(), seen.size());
    for (std::size_t at = 0; at <= n; ++at) {
        if (at == n && expected.size() == seen.size()) return;
        if (at < n && expected[at] == seen[at]) continue;
        const auto show = [at](const Lines &lines) {
            return at < lines.size() ? "\"" + visible(lines[at]) + "\"" : std::string("nothing");
        };
        fault(what + ": line " + std::to_string(at + 1) + " of " + std::to_string(expected.size()) +
              " is " + show(seen) + " instead of " + show(expected));
    }
}

std::string recorded(std::string line) {
    line.erase(line.find_last_not_of(" \t\n\v\f\r") + 1);
    return line;
}

void visit(State &state) {
    Visit(state, kPrograms[below(state.random, std::size(kPrograms))]).run();
}

}  // namespace soak
