#include "harness/session.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "harness/process.h"
#include "harness/screen.h"

namespace fs = std::filesystem;

namespace harness {
namespace {

using Clock = std::chrono::steady_clock;

// For one wait. Nothing takes nearly as long, not even on a loaded machine with sanitizers.
constexpr auto kDeadline = std::chrono::seconds(60);
// Without a look into its system call, morp counts as asleep for good after this long without a
// change: longer than any time limit of its waits.
constexpr auto kQuiet = std::chrono::milliseconds(250);
constexpr std::size_t kTail = 2000;
// Descriptor on which the holder takes orders.
constexpr int kHolderControl = 3;

[[noreturn]] void fail_errno(const std::string &what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

std::string slurp(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::vector<char *> pointers(std::vector<std::string> &words) {
    std::vector<char *> list;
    list.reserve(words.size() + 1);
    for (auto &word : words) list.push_back(word.data());
    list.push_back(nullptr);
    return list;
}

bool same_settings(const termios &a, const termios &b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
           a.c_lflag == b.c_lflag && memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

}  // namespace

std::string morp() { return MORP_BINARY; }

std::string helper(std::string_view name) {
    return std::string(MORP_TEST_PROGRAMS) + "/" + std::string(name);
}

std::string visible(std::string_view bytes) {
    std::string out;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        char hex[8];
        (void)snprintf(hex, sizeof hex, "\\x%02x", byte);
        if (c == '\n')
            out += "\\n\n";
        else if (c == '\r')
            out += "\\r";
        else if (byte < 32 || byte > 126)
            out += hex;
        else
            out += c;
    }
    return out;
}

struct Session::Impl {
    explicit Impl(Options given);
    ~Impl();

    void make_home();
    void open_terminal();
    std::vector<std::string> environment();
    std::vector<std::string> command() const;
    void start();

    bool pump();
    Screen &view();
    void read_reports();
    void take_report(const std::string &line);
    void order(char what);
    void pause(int wait_ms);
    void wait_for(std::string_view what, bool needs_job, const std::function<bool()> &ready);
    [[noreturn]] void give_up(std::string_view what, const char *why);
    std::string picture();
    termios settings() const;
    Mode mode() const;
    pid_t find_morp(pid_t from) const;
    bool resting(const Nap &now);
    bool settled();
    bool at_prompt(std::string_view shown);
    void finish();
    void check_end();

    Options options;
    fs::path dir;  // of this run: home, sanitizer reports
    int master = -1;
    int slave = -1;    // held open, so that the terminal outlives its last user
    int control = -1;  // the holder's socket
    pid_t holder = -1;
    termios at_start{};
    // The screen lags behind the log until it is looked at: most of a flood scrolls by unseen.
    Screen screen;
    std::size_t on_screen = 0;
    std::string log;
    std::string report;  // half a line from the holder
    pid_t job = -1;
    std::optional<int> job_status;
    std::optional<int> stopped;
    bool nobody_left = false;
    bool hung_up = false;
    long seen_switches = -1;  // for judging sleep by time
    Clock::time_point seen_at;
};

Session::Impl::Impl(Options given) : options(std::move(given)), screen(options.rows, options.cols) {
    make_home();
    open_terminal();
    start();
    wait_for("the start of the job", false, [&] { return job > 0; });
}

Session::Impl::~Impl() {
    for (const int fd : {master, slave, control}) {
        if (fd >= 0) close(fd);
    }
    std::error_code ignored;  // a test may have taken rights away in its own home
    fs::remove_all(dir, ignored);
}

void Session::Impl::make_home() {
    std::string name = (fs::temp_directory_path() / "morp-test-XXXXXX").string();
    if (!mkdtemp(name.data())) fail_errno("mkdtemp");
    dir = name;
    fs::create_directory(dir / "home");
    for (const auto &[file, bytes] : options.files)
        std::ofstream(dir / "home" / file, std::ios::binary) << bytes;
}

void Session::Impl::open_terminal() {
    master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (master < 0 || grantpt(master) < 0 || unlockpt(master) < 0) fail_errno("no pseudo-terminal");
    slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (slave < 0 || tcgetattr(slave, &at_start) < 0) fail_errno("no terminal");
    if (options.terminal) options.terminal(at_start);
    winsize size{};
    size.ws_row = static_cast<unsigned short>(options.rows);
    size.ws_col = static_cast<unsigned short>(options.cols);
    if (tcsetattr(slave, TCSANOW, &at_start) < 0 || ioctl(master, TIOCSWINSZ, &size) < 0 ||
        tcgetattr(slave, &at_start) < 0)
        fail_errno("terminal settings");
}

std::vector<std::string> Session::Impl::environment() {
    const std::string sanitizer = "log_path=" + (dir / "report").string() + ":exitcode=99";
    std::map<std::string, std::string> vars{
        {"HOME", (dir / "home").string()},
        {"PATH", std::string(MORP_TEST_PROGRAMS) + ":/usr/local/bin:/usr/bin:/bin"},
        {"TERM", "xterm"},
        {"LC_ALL", "C"},
        {"PS1", "$ "},
        {"COLUMNS", std::to_string(options.cols)},
        {"Q_VXEDITOR", options.style},
        {"MORP", MORP_BINARY},
        {"ASAN_OPTIONS", sanitizer},
        {"UBSAN_OPTIONS", sanitizer + ":print_stacktrace=1"},
    };
    for (const auto &[name, value] : options.env) vars[name] = value;
    for (const auto &name : options.unset) vars.erase(name);
    std::vector<std::string> list;
    list.reserve(vars.size());
    for (const auto &[name, value] : vars) list.push_back(name + "=" + value);
    return list;
}

std::vector<std::string> Session::Impl::command() const {
    std::vector<std::string> words{helper("holder")};
    if (!options.outer.empty()) {
        words.insert(words.end(), options.outer.begin(), options.outer.end());
        return words;
    }
    words.emplace_back(MORP_BINARY);
    words.insert(words.end(), options.morp_args.begin(), options.morp_args.end());
    if (!options.program.empty()) {
        words.emplace_back("--");
        words.insert(words.end(), options.program.begin(), options.program.end());
    }
    return words;
}

void Session::Impl::start() {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) < 0) fail_errno("socketpair");
    control = pair[0];
    fcntl(control, F_SETFL, O_NONBLOCK);
    auto env = environment();
    auto words = command();
    const auto env_list = pointers(env);
    const auto word_list = pointers(words);
    const std::string home_dir = (dir / "home").string();
    const std::string tty = ptsname(master);
    holder = fork();
    if (holder < 0) fail_errno("fork");
    if (holder == 0) {
        setsid();
        const int fd = open(tty.c_str(), O_RDWR);  // becomes the controlling terminal
        // Out of the way of descriptors 0 to 3 first, in case it is one of them.
        const int order_fd = fcntl(pair[1], F_DUPFD_CLOEXEC, 10);
        for (const int to : {0, 1, 2}) dup2(fd, to);
        dup2(order_fd, kHolderControl);
        if (fd > kHolderControl) close(fd);
        if (chdir(home_dir.c_str()) == 0) execve(word_list[0], word_list.data(), env_list.data());
        _exit(127);
    }
    close(pair[1]);
}

// Takes what morp has written; false when there was nothing.
bool Session::Impl::pump() {
    if (master < 0) return false;
    // The kernel hands terminal bytes over in a worker of its own; poll waits for it.
    pollfd ready{master, POLLIN, 0};
    bool any = false;
    char bytes[65536];
    while (poll(&ready, 1, 0) > 0 && (ready.revents & POLLIN)) {
        const ssize_t n = read(master, bytes, sizeof bytes);
        if (n <= 0) break;
        const std::string_view piece(bytes, static_cast<std::size_t>(n));
        log += piece;
        any = true;
    }
    return any;
}

Screen &Session::Impl::view() {
    screen.feed(std::string_view(log).substr(on_screen));
    on_screen = log.size();
    return screen;
}

void Session::Impl::read_reports() {
    char bytes[256];
    ssize_t n = 0;
    while ((n = read(control, bytes, sizeof bytes)) > 0)
        report.append(bytes, static_cast<std::size_t>(n));
    for (std::size_t end = 0; (end = report.find('\n')) != std::string::npos;) {
        take_report(report.substr(0, end));
        report.erase(0, end + 1);
    }
}

void Session::Impl::take_report(const std::string &line) {
    const int value = std::stoi(line.substr(2));
    switch (line[0]) {
        case 'P':
            job = value;
            break;
        case 'S':
            stopped = value;
            break;
        case 'E':
            job_status = value;
            break;
        default:
            nobody_left = true;
    }
}

void Session::Impl::order(char what) {
    if (write(control, &what, 1) != 1) fail_errno("the job's parent is gone");
}

// Sleeps until something has come from the terminal or the holder, `wait_ms` at most.
void Session::Impl::pause(int wait_ms) {
    pollfd fds[] = {{control, POLLIN, 0}, {master, POLLIN, 0}};
    poll(fds, master >= 0 ? 2 : 1, wait_ms);
}

void Session::Impl::wait_for(std::string_view what, bool needs_job,
                             const std::function<bool()> &ready) {
    const auto end = Clock::now() + kDeadline;
    // States of other processes come without notice, so they are asked for again and again.
    for (int wait_ms = 1;; wait_ms = std::min(wait_ms * 2, 16)) {
        read_reports();
        // Asked in this order, all that the job wrote before it ended is taken before `ready`.
        const bool over = job_status.has_value();
        pump();
        if (ready()) return;
        if (needs_job && over) give_up(what, "ended before");
        if (Clock::now() > end) give_up(what, "did not come within the deadline");
        pause(wait_ms);
    }
}

std::string Session::Impl::picture() {
    int at_row = 0, at_col = 0;
    view().cursor(at_row, at_col);
    std::ostringstream out;
    out << "\n--- screen, cursor at row " << at_row << ", column " << at_col << "\n"
        << view().all() << "--- end of the output (" << log.size() << " bytes)\n"
        << visible(std::string_view(log).substr(log.size() - std::min(log.size(), kTail)))
        << "\n---\n";
    return out.str();
}

void Session::Impl::give_up(std::string_view what, const char *why) {
    std::ostringstream out;
    out << "waited for " << what << ": " << why;
    if (job_status) out << "; the job has ended with wait status " << *job_status;
    if (master >= 0) out << "; terminal mode " << static_cast<int>(mode());
    const pid_t pid = job_status ? -1 : find_morp(job);
    if (pid > 0) {
        const Nap now = nap(pid);
        out << "; morp in state " << now.state << (now.endless_wait ? ", waiting" : "");
    }
    throw std::runtime_error(out.str() + picture());
}

termios Session::Impl::settings() const {
    termios now{};
    if (tcgetattr(master, &now) < 0) fail_errno("tcgetattr");
    return now;
}

Mode Session::Impl::mode() const {
    const termios now = settings();
    if (same_settings(now, at_start)) return Mode::original;
    if ((now.c_lflag & ICANON) != 0) return now.c_cc[VEOF] == 27 ? Mode::alt : Mode::other;
    if ((now.c_lflag & ECHO) != 0) return Mode::other;
    if ((now.c_lflag & ISIG) == 0 && (now.c_oflag & OPOST) == 0) return Mode::pass;
    return (now.c_lflag & ISIG) == (at_start.c_lflag & ISIG) ? Mode::raw : Mode::other;
}

// morp among `from` and its descendants. Its own child looks the same until it executes the
// program, so the search goes from the top.
pid_t Session::Impl::find_morp(pid_t from) const {
    if (executable(from) == fs::canonical(MORP_BINARY)) return from;
    for (const pid_t child : children(from)) {
        const pid_t found = find_morp(child);
        if (found > 0) return found;
    }
    return -1;
}

bool Session::Impl::resting(const Nap &now) {
    if (now.state != 'S') return false;
    if (now.known) return now.endless_wait;
    const long switches = now.voluntary + now.involuntary;
    if (switches != seen_switches) {
        seen_switches = switches;
        seen_at = Clock::now();
    }
    return Clock::now() - seen_at > kQuiet;
}

// morp sleeps, and did so while the terminal was found without a key or a byte of output on the
// way. The poll of the slave makes the kernel deliver keys typed just before, which wakes morp.
bool Session::Impl::settled() {
    const pid_t pid = find_morp(job);
    if (pid < 0) return false;
    const Nap before = nap(pid);
    if (!resting(before)) return false;
    pollfd keys{slave, POLLIN, 0};
    if (poll(&keys, 1, 0) != 0 || pump()) return false;
    const Nap after = nap(pid);
    return resting(after) && after.voluntary == before.voluntary &&
           after.involuntary == before.involuntary;
}

bool Session::Impl::at_prompt(std::string_view shown) {
    int row = 0, col = 0;
    view().cursor(row, col);
    return view().text(row, 0, col).ends_with(shown);
}

// Ends the job as a user's kill does, when the test has not ended it.
void Session::Impl::finish() {
    if (!job_status && options.outer.empty() && !hung_up) {
        kill(job, SIGTERM);
        if (stopped) order('f');
    }
    if (options.outer.empty() || job_status) {
        wait_for("the end of morp", false, [&] { return job_status.has_value(); });
        wait_for("the end of every process of the run", false, [&] { return nobody_left; });
    }
}

void Session::Impl::check_end() {
    const bool ended = options.outer.empty() || job_status;
    if (ended && options.outer.empty() && WIFSIGNALED(*job_status) &&
        WTERMSIG(*job_status) != SIGKILL)
        ADD_FAILURE() << "morp was ended by signal " << WTERMSIG(*job_status) << picture();
    if (ended && !hung_up && !same_settings(settings(), at_start))
        ADD_FAILURE() << "the terminal was left in another mode, " << static_cast<int>(mode())
                      << picture();
}

Session::Session(std::string_view style, std::string_view script)
    : Session(Options{.style = std::string(style), .program = {"sh", "-c", std::string(script)}}) {}

Session::Session(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Session::~Session() {
    // A test that failed half-way leaves things as they are; nothing more is to be learnt then.
    if (std::uncaught_exceptions() == 0) {
        try {
            impl_->finish();
            impl_->check_end();
        } catch (const std::exception &error) {
            ADD_FAILURE() << error.what();
        }
    }
    const char quit = 'q';
    (void)!write(impl_->control, &quit, 1);  // the end of the socket says the same
    int status = 0;
    waitpid(impl_->holder, &status, 0);
    for (const auto &entry : fs::directory_iterator(impl_->dir)) {
        if (entry.path().filename().string().starts_with("report"))
            ADD_FAILURE() << slurp(entry.path());
    }
}

void Session::type(std::string_view bytes) {
    const auto end = Clock::now() + kDeadline;
    while (!bytes.empty()) {
        impl_->pump();
        const ssize_t n = write(impl_->master, bytes.data(), bytes.size());
        if (n > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(n));
            continue;
        }
        if (errno != EAGAIN) fail_errno("typing");
        if (Clock::now() > end) impl_->give_up("the terminal to take keys", "it does not");
        pollfd ready{impl_->master, POLLIN | POLLOUT, 0};
        poll(&ready, 1, 10);
    }
}

void Session::resize(int rows, int cols) {
    impl_->pump();
    impl_->view().resize(rows, cols);
    winsize size{};
    size.ws_row = static_cast<unsigned short>(rows);
    size.ws_col = static_cast<unsigned short>(cols);
    if (ioctl(impl_->master, TIOCSWINSZ, &size) < 0) fail_errno("TIOCSWINSZ");
}

void Session::signal(int sig) {
    if (kill(morp_pid(), sig) < 0) fail_errno("kill");
}

void Session::hang_up() {
    impl_->pump();
    close(impl_->slave);
    close(impl_->master);
    impl_->slave = impl_->master = -1;
    impl_->hung_up = true;
}

void Session::wait_text(std::string_view text) {
    impl_->wait_for("text \"" + visible(text) + "\"", true,
                    [&] { return impl_->view().contains(text); });
}

void Session::wait_row(int n, std::string_view text) {
    impl_->wait_for("row " + std::to_string(n) + " to be \"" + visible(text) + "\"", true,
                    [&] { return impl_->view().row(n) == text; });
}

void Session::wait_output(std::string_view bytes, std::size_t mark) {
    std::size_t from = mark;
    impl_->wait_for("output \"" + visible(bytes) + "\"", true, [&] {
        if (impl_->log.find(bytes, from) != std::string::npos) return true;
        const std::size_t size = impl_->log.size();
        from = std::max(mark, size - std::min(size, bytes.size()));
        return false;
    });
}

void Session::wait_editing(std::string_view shown) {
    const bool vi = impl_->options.style.ends_with("vi");
    impl_->wait_for("an edit at \"" + visible(shown) + "\"", true, [&] {
        if (!impl_->at_prompt(shown) || !impl_->settled()) return false;
        const Mode mode = impl_->mode();
        return (mode == Mode::raw || (vi && mode == Mode::alt)) && impl_->at_prompt(shown);
    });
}

void Session::wait_asleep() {
    impl_->wait_for("morp to sleep", true, [&] { return impl_->settled(); });
}

void Session::wait_mode(Mode mode) {
    impl_->wait_for("terminal mode " + std::to_string(static_cast<int>(mode)), true,
                    [&] { return impl_->mode() == mode; });
}

void Session::wait_for(std::string_view what, const std::function<bool()> &ready) {
    impl_->wait_for(what, false, ready);
}

int Session::wait_stopped() {
    impl_->wait_for("the job to stop", true, [&] { return impl_->stopped.has_value(); });
    return *impl_->stopped;
}

int Session::wait_exit() {
    impl_->wait_for("the job to end", false, [&] { return impl_->job_status.has_value(); });
    impl_->pump();
    const int status = *impl_->job_status;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Session::wait_no_process() {
    impl_->wait_for("the end of every process", false, [&] { return impl_->nobody_left; });
}

void Session::fg() {
    impl_->stopped.reset();
    impl_->order('f');
}

void Session::bg() {
    impl_->stopped.reset();
    impl_->order('b');
}

std::string Session::row(int n) {
    impl_->pump();
    return impl_->view().row(n);
}

std::string Session::screen() {
    impl_->pump();
    return impl_->view().all();
}

Session::Place Session::cursor() {
    impl_->pump();
    Place place{};
    impl_->view().cursor(place.row, place.col);
    return place;
}

Session::Place Session::size() const {
    winsize now{};
    if (ioctl(impl_->master, TIOCGWINSZ, &now) < 0) fail_errno("TIOCGWINSZ");
    return {now.ws_row, now.ws_col};
}

const std::string &Session::output() {
    impl_->pump();
    return impl_->log;
}

std::size_t Session::mark() { return output().size(); }

std::string Session::output_since(std::size_t mark) { return output().substr(mark); }

termios Session::terminal() const { return impl_->settings(); }

Mode Session::mode() const { return impl_->mode(); }

const termios &Session::terminal_at_start() const { return impl_->at_start; }

void Session::set_terminal(const termios &settings) {
    if (tcsetattr(impl_->slave, TCSANOW, &settings) < 0) fail_errno("tcsetattr");
}

termios Session::program_terminal() {
    const std::string path = "/proc/" + std::to_string(program_pid()) + "/fd/0";
    const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    termios now{};
    const bool known = fd >= 0 && tcgetattr(fd, &now) == 0;
    if (fd >= 0) close(fd);
    if (!known) fail_errno("the program's terminal");
    return now;
}

bool Session::program_runs(std::string_view name) {
    const pid_t group = foreground_group(program_pid());
    return group > 0 && executable(group).ends_with("/" + std::string(name)) &&
           nap(group).state == 'S';
}

std::string Session::file(std::string_view name) const { return slurp(fs::path(home()) / name); }

std::string Session::history(std::string_view program) const {
    return file("." + std::string(program) + "_history");
}

std::string Session::home() const { return (impl_->dir / "home").string(); }

pid_t Session::morp_pid() {
    pid_t pid = -1;
    impl_->wait_for("morp's process", true, [&] {
        pid = impl_->find_morp(impl_->job);
        return pid > 0;
    });
    return pid;
}

bool Session::morp_runs() { return impl_->find_morp(impl_->job) > 0; }

pid_t Session::program_pid() {
    pid_t pid = -1;
    impl_->wait_for("the program's process", true, [&] {
        const pid_t morp = impl_->find_morp(impl_->job);
        const auto list = morp > 0 ? children(morp) : std::vector<pid_t>();
        // Until it executes the program, the child is a copy of morp.
        if (list.empty() || executable(list[0]) == executable(morp)) return false;
        pid = list[0];
        return true;
    });
    return pid;
}

long Session::sleeps() { return nap(morp_pid()).voluntary; }

}  // namespace harness
