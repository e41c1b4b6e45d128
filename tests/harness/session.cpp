#include "harness/session.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace harness {

// For one wait. Nothing takes nearly as long, not even on a loaded machine with sanitizers.
static constexpr auto kDeadline = std::chrono::seconds(60);
// Without a look into its system call, morp counts as asleep for good after this long without a
// change: longer than any time limit of its waits.
static constexpr auto kQuiet = std::chrono::milliseconds(250);
static constexpr std::size_t kTail = 2000;
// Descriptor on which the holder takes orders.
static constexpr int kHolderControl = 3;

[[noreturn]] static void fail_errno(const std::string &what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

static std::string slurp(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

static bool same_settings(const termios &a, const termios &b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag && memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

static winsize window(int rows, int cols) {
    return {static_cast<unsigned short>(rows), static_cast<unsigned short>(cols), 0, 0};
}

std::string morp() { return MORP_BINARY; }

std::string helper(std::string_view name) {
    return std::string(MORP_TEST_PROGRAMS) + "/" + std::string(name);
}

std::string visible(std::string_view bytes) {
    std::string out;
    for (const char c : bytes) {
        char hex[8];
        (void)snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
        if (c == '\n')
            out += "\\n\n";
        else
            out += c < 32 || c > 126 ? std::string(hex) : std::string(1, c);
    }
    return out;
}

Session::Session(Options options)
    : options_(std::move(options)),
      screen_(options_.rows, options_.cols, options_.env.contains("Q_VXEXTENDED")),
      paper_(options_.rows, options_.cols, options_.env.contains("Q_VXEXTENDED")) {
    paper_.feed(options_.prompt);
    std::string name = (fs::temp_directory_path() / "morp-test-XXXXXX").string();
    if (!mkdtemp(name.data())) fail_errno("mkdtemp");
    dir_ = name;
    fs::create_directory(home());
    const winsize size = window(options_.rows, options_.cols);
    int pair[2];
    if (openpty(&master_, &slave_, nullptr, nullptr, &size) < 0 ||
        tcgetattr(slave_, &at_start_) < 0)
        fail_errno("no pseudo-terminal");
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) < 0) fail_errno("socketpair");
    control_ = pair[0];
    for (const int fd : {master_, slave_, control_}) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        fcntl(fd, F_SETFL, O_RDWR | O_NONBLOCK);
    }
    holder_ = fork();
    if (holder_ < 0) fail_errno("fork");
    if (holder_ == 0) become_holder(pair[1]);
    close(pair[1]);
    wait_for("the start of the job", [&] { return job_ > 0; });
}

Session::~Session() {
    // A test that failed half-way leaves things as they are; nothing more is to be learnt then.
    if (std::uncaught_exceptions() == 0) {
        try {
            finish();
        } catch (const std::exception &error) {
            ADD_FAILURE() << error.what();
        }
    }
    const char quit = 'q';
    (void)!write(control_, &quit, 1);  // the end of the socket says the same
    waitpid(holder_, nullptr, 0);
    for (const auto &entry : fs::directory_iterator(dir_)) {
        if (entry.path().filename().string().starts_with("report"))
            ADD_FAILURE() << slurp(entry.path());
    }
    for (const int fd : {master_, slave_, control_, terminal_}) close(fd);
    std::error_code ignored;  // a test may have taken rights away in its own home
    fs::remove_all(dir_, ignored);
}

// Ends the job as a user's kill does, when the test has not ended it, and checks what it left.
void Session::finish() {
    const bool direct = options_.outer.empty();
    if (!direct && !job_status_) return;
    // Without a program it is ending by itself, and a signal that comes into the leak check at its
    // end would make that hang.
    if (!job_status_ && master_ >= 0 && !children(job_).empty()) {
        kill(job_, SIGTERM);
        if (stopped_) order('f');
    }
    const int status = wait_exit();
    wait_no_process();
    if (direct && status < 0 && status != -SIGKILL)
        ADD_FAILURE() << "morp was ended by signal " << -status << picture();
    if (master_ >= 0 && !same_settings(settings(), at_start_))
        ADD_FAILURE() << "the terminal was left in mode " << static_cast<int>(mode()) << picture();
}

std::map<std::string, std::string> Session::environment() const {
    const std::string sanitizer = "log_path=" + (dir_ / "report").string() + ":exitcode=99";
    std::map<std::string, std::string> vars = options_.env;
    vars.merge(std::map<std::string, std::string>{
        {"HOME", home()},
        {"PATH", std::string(MORP_TEST_PROGRAMS) + ":/usr/local/bin:/usr/bin:/bin"},
        {"TERM", "xterm"},
        {"LC_ALL", "C"},
        {"PS1", "$ "},
        {"COLUMNS", std::to_string(options_.cols)},
        {"Q_VXEDITOR", options_.style},
        {"MORP", MORP_BINARY},
        {"ASAN_OPTIONS", sanitizer},
        {"UBSAN_OPTIONS", sanitizer + ":print_stacktrace=1"},
    });
    return vars;
}

std::vector<std::string> Session::command() const {
    std::vector<std::string> words = options_.outer;
    if (words.empty()) {
        words = options_.morp_args;
        words.insert(words.begin(), MORP_BINARY);
        if (!options_.program.empty()) words.emplace_back("--");
        words.insert(words.end(), options_.program.begin(), options_.program.end());
    }
    words.insert(words.begin(), helper("holder"));
    return words;
}

void Session::become_holder(int control) {
    std::vector<std::string> words = command();
    std::vector<char *> pointers(words.size() + 1);
    std::transform(words.begin(), words.end(), pointers.begin(),
                   [](std::string &word) { return word.data(); });
    const auto vars = environment();
    clearenv();
    for (const auto &[name, value] : vars) setenv(name.c_str(), value.c_str(), 1);
    fs::current_path(home());
    fcntl(slave_, F_SETFL, O_RDWR);  // shared with what runs on it
    login_tty(slave_);
    // What whoever runs the tests has left open would count against a limit under test.
    (void)close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    dup2(control, kHolderControl);
    fcntl(kHolderControl, F_SETFD, 0);
    execv(pointers[0], pointers.data());
    _exit(127);
}

// Takes what morp has written; false when there was nothing.
bool Session::pump() {
    // The kernel hands terminal bytes over in a worker of its own; poll waits for it.
    pollfd ready{master_, POLLIN, 0};
    const std::size_t before = log_.size();
    char bytes[65536];
    while (master_ >= 0 && poll(&ready, 1, 0) > 0 && (ready.revents & POLLIN)) {
        const ssize_t n = read(master_, bytes, sizeof bytes);
        if (n <= 0) break;
        log_.append(bytes, static_cast<std::size_t>(n));
    }
    return log_.size() != before;
}

Screen &Session::view() {
    pump();
    screen_.feed(std::string_view(log_).substr(on_screen_));
    on_screen_ = log_.size();
    return screen_;
}

void Session::read_reports() {
    char bytes[256];
    ssize_t n = 0;
    while ((n = read(control_, bytes, sizeof bytes)) > 0)
        report_.append(bytes, static_cast<std::size_t>(n));
    for (std::size_t end = 0; (end = report_.find('\n')) != std::string::npos;) {
        const int value = std::stoi(report_.substr(2));
        if (report_[0] == 'P') job_ = value;
        if (report_[0] == 'S') stopped_ = value;
        if (report_[0] == 'E') job_status_ = value;
        if (report_[0] == 'N') nobody_left_ = true;
        report_.erase(0, end + 1);
    }
}

void Session::order(char what) {
    if (write(control_, &what, 1) != 1) fail_errno("the job's parent is gone");
}

void Session::wait_until(std::string_view what, bool needs_job,
                         const std::function<bool()> &ready) {
    const auto end = Clock::now() + kDeadline;
    // States of other processes come without notice, so they are asked for again and again.
    for (int wait_ms = 1;; wait_ms = std::min(wait_ms * 2, 16)) {
        read_reports();
        // Asked in this order, all that the job wrote before it ended is taken before `ready`.
        const bool over = job_status_.has_value();
        pump();
        if (ready()) return;
        if (needs_job && over) give_up(what, "ended before");
        if (Clock::now() > end) give_up(what, "did not come within the deadline");
        pollfd fds[] = {{control_, POLLIN, 0}, {master_, POLLIN, 0}};
        poll(fds, 2, wait_ms);
    }
}

std::string Session::picture() {
    const Place at = cursor();
    std::ostringstream out;
    out << "\n--- screen, cursor at row " << at.row << ", column " << at.col << "\n"
        << screen() << "--- end of the output (" << log_.size() << " bytes)\n"
        << visible(std::string_view(log_).substr(log_.size() - std::min(log_.size(), kTail)))
        << "\n---\n";
    return out.str();
}

void Session::give_up(std::string_view what, const char *why) {
    std::ostringstream out;
    out << "waited for " << what << ": " << why;
    if (job_status_) out << "; the job has ended with wait status " << *job_status_;
    if (master_ >= 0) out << "; terminal mode " << static_cast<int>(mode());
    if (!job_status_) out << "; morp in state " << nap(find_morp(job_)).state;
    throw std::runtime_error(out.str() + picture());
}

termios Session::settings() const {
    termios now{};
    if (tcgetattr(master_, &now) < 0) fail_errno("tcgetattr");
    return now;
}

Mode Session::mode() const {
    const termios now = settings();
    if (same_settings(now, at_start_)) return Mode::original;
    if ((now.c_lflag & ICANON) != 0) return now.c_cc[VEOF] == 27 ? Mode::alt : Mode::other;
    if ((now.c_lflag & ECHO) != 0) return Mode::other;
    if ((now.c_lflag & ISIG) == 0 && (now.c_oflag & OPOST) == 0) return Mode::pass;
    return (now.c_lflag & ISIG) == (at_start_.c_lflag & ISIG) ? Mode::raw : Mode::other;
}

// morp among `from` and its descendants. Its own child looks the same until it executes the
// program, so the search goes from the top.
pid_t Session::find_morp(pid_t from) const {
    const std::string runs = executable(from);
    if (fs::path(runs).filename() == "morp" || runs.find("/valgrind/") != std::string::npos)
        return from;
    for (const pid_t child : children(from)) {
        const pid_t found = find_morp(child);
        if (found > 0) return found;
    }
    return -1;
}

bool Session::resting(const Nap &now) {
    if (now.state != 'S') return false;
    if (now.known) return now.endless_wait;
    const long switches = now.voluntary + now.involuntary;
    if (switches != seen_switches_) {
        seen_switches_ = switches;
        seen_at_ = Clock::now();
    }
    return Clock::now() - seen_at_ > kQuiet;
}

// morp sleeps, and did so while the terminal was found without a key or a byte of output on the
// way. The poll of the slave makes the kernel deliver keys typed just before, which wakes morp.
bool Session::settled() {
    const pid_t pid = find_morp(job_);
    if (pid < 0) return false;
    const Nap before = nap(pid);
    if (!resting(before)) return false;
    pollfd keys{slave_, POLLIN, 0};
    if (poll(&keys, 1, 0) != 0 || pump()) return false;
    const Nap after = nap(pid);
    return resting(after) && after.voluntary == before.voluntary &&
           after.involuntary == before.involuntary;
}

bool Session::at_prompt(std::string_view shown) {
    const Place at = cursor();
    return screen_.text(at.row, 0, at.col).ends_with(shown);
}

void Session::type(std::string_view bytes) {
    wait_for("the terminal to take keys", [&] {
        while (!bytes.empty()) {
            const ssize_t n = write(master_, bytes.data(), bytes.size());
            if (n < 0 && errno == EAGAIN) break;
            if (n < 0) fail_errno("typing");
            bytes.remove_prefix(static_cast<std::size_t>(n));
        }
        return bytes.empty();
    });
}

void Session::resize(int rows, int cols) {
    view().resize(rows, cols);
    const winsize size = window(rows, cols);
    if (ioctl(master_, TIOCSWINSZ, &size) < 0) fail_errno("TIOCSWINSZ");
}

void Session::signal(int sig) {
    if (kill(morp_pid(), sig) < 0) fail_errno("kill");
}

void Session::hang_up() {
    pump();
    close(slave_);
    close(master_);
    slave_ = master_ = -1;
}

void Session::resume(char how) {
    stopped_.reset();
    order(how);
}

void Session::set_terminal(const termios &settings) {
    if (tcsetattr(slave_, TCSANOW, &settings) < 0) fail_errno("tcsetattr");
}

void Session::wait_text(std::string_view text) {
    wait_for("text \"" + visible(text) + "\"", [&] { return view().contains(text); });
}

void Session::wait_row(int n, std::string_view text) {
    wait_for("row " + std::to_string(n) + " to be \"" + visible(text) + "\"",
             [&] { return row(n) == text; });
}

void Session::wait_output(std::string_view bytes, std::size_t mark) {
    std::size_t from = mark;
    wait_for("output \"" + visible(bytes) + "\"", [&] {
        if (log_.find(bytes, from) != std::string::npos) return true;
        from = std::max(mark, log_.size() - std::min(log_.size(), bytes.size()));
        return false;
    });
}

void Session::wait_editing(std::string_view shown) {
    const bool vi = options_.style.ends_with("vi");
    wait_settled("an edit at \"" + visible(shown) + "\"", [&] {
        if (!at_prompt(shown)) return false;
        const Mode now = mode();
        return now == Mode::raw || (vi && now == Mode::alt);
    });
}

void Session::wait_settled(std::string_view what, const std::function<bool()> &ready) {
    // Before the first wait for a key morp may sleep, too, until the program has started.
    wait_for(what, [&] {
        const bool done = job_status_ || (mode() != Mode::original && settled());
        return done && ready();
    });
}

void Session::wait_asleep() {
    wait_for("morp to sleep", [&] { return settled(); });
}

void Session::wait_mode(Mode wanted) {
    wait_for("terminal mode " + std::to_string(static_cast<int>(wanted)),
             [&] { return mode() == wanted; });
}

int Session::wait_stopped() {
    wait_for("the job to stop", [&] { return stopped_.has_value(); });
    return *stopped_;
}

int Session::wait_exit() {
    wait_for("the job to end", [&] { return job_status_.has_value(); });
    pump();
    return WIFEXITED(*job_status_) ? WEXITSTATUS(*job_status_) : -WTERMSIG(*job_status_);
}

void Session::wait_no_process() {
    wait_until("the end of every process", false, [&] { return nobody_left_; });
}

Place Session::size() const {
    winsize now{};
    if (ioctl(master_, TIOCGWINSZ, &now) < 0) fail_errno("TIOCGWINSZ");
    return {now.ws_row, now.ws_col};
}

const std::string &Session::output() {
    pump();
    return log_;
}

std::string Session::file(std::string_view name) const { return slurp(dir_ / "home" / name); }

std::string Session::history() const {
    std::string all;
    for (const auto &entry : fs::directory_iterator(home()))
        if (entry.path().string().ends_with("_history")) all += slurp(entry.path());
    return all;
}

pid_t Session::morp_pid() {
    pid_t pid = -1;
    wait_for("morp's process", [&] { return (pid = find_morp(job_)) > 0; });
    return pid;
}

pid_t Session::program_pid() {
    pid_t pid = -1;
    wait_for("the program's process", [&] {
        const pid_t morp = find_morp(job_);
        const auto list = morp > 0 ? children(morp) : std::vector<pid_t>();
        // Until it executes the program, the child is a copy of morp.
        if (list.empty() || executable(list[0]) == executable(morp)) return false;
        pid = list[0];
        return true;
    });
    return pid;
}

std::string Session::program_terminal() {
    return "/proc/" + std::to_string(program_pid()) + "/fd/0";
}

}  // namespace harness
