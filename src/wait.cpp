// wait.cpp: see wait.h. One window is open at a time; catchers run in windows only, so the state
// below changes under no one's hands but screen_write's rest, which a catcher that ends the process
// reads.
#include "wait.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <cerrno>
#include <iterator>

#include "os.h"

static constexpr int kCaught[] = {SIGTERM, SIGHUP,  SIGINT,   SIGQUIT, SIGTSTP,
                                  SIGUSR2, SIGCHLD, SIGWINCH, SIGCONT};
static constexpr int kIgnored[] = {SIGPIPE, SIGXFSZ};

volatile std::sig_atomic_t progdone = 0;
void (*Between_writes)() = nullptr;
sigset_t Start_mask;
static sigset_t Wait_mask;      // in force while a wait sleeps
static sigset_t No_child_mask;  // the same with SIGCHLD blocked
static sigset_t End_mask;       // all blocked but SIGTERM and SIGHUP
static sigset_t Shut_mask;      // in force outside the windows
static struct sigaction Found[std::size(kCaught)];
static struct sigaction Found_ignored[std::size(kIgnored)];

// A descriptor of the user's terminal: morp's own, which never blocks, or the one given.
struct Channel {
    int fd;
    bool own;
};
static Channel Keyboard = {STDIN_FILENO, false};
static Channel Program_screen = {STDOUT_FILENO, false};
static Channel Editor_screen = {STDERR_FILENO, false};
static bool Hurry = false;

// What screen_write has not written yet; empty outside of it.
static struct {
    const Channel *to;
    const char *data;
    std::size_t len;
} Rest;

void signals_block() {
    sigset_t caught;
    sigemptyset(&caught);
    for (const int sig : kCaught) sigaddset(&caught, sig);
    (void)sigprocmask(SIG_BLOCK, &caught, &Start_mask);  // fails for a bad `how` only
    (void)sigprocmask(SIG_BLOCK, nullptr, &Shut_mask);
    Wait_mask = Start_mask;
    for (const int sig : kCaught) sigdelset(&Wait_mask, sig);
    No_child_mask = Wait_mask;
    sigaddset(&No_child_mask, SIGCHLD);
    End_mask = Shut_mask;
    sigdelset(&End_mask, SIGTERM);
    sigdelset(&End_mask, SIGHUP);
    for (std::size_t i = 0; i < std::size(kCaught); i++)
        (void)sigaction(kCaught[i], nullptr, &Found[i]);
    for (std::size_t i = 0; i < std::size(kIgnored); i++) {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        (void)sigaction(kIgnored[i], &ignore, &Found_ignored[i]);
    }
}

void signals_restore() {
    for (std::size_t i = 0; i < std::size(kCaught); i++)
        (void)sigaction(kCaught[i], &Found[i], nullptr);
    for (std::size_t i = 0; i < std::size(kIgnored); i++)
        (void)sigaction(kIgnored[i], &Found_ignored[i], nullptr);
    (void)sigprocmask(SIG_SETMASK, &Start_mask, nullptr);
}

bool signal_was_ignored(int sig) {
    for (std::size_t i = 0; i < std::size(kCaught); i++)
        if (kCaught[i] == sig) return Found[i].sa_handler == SIG_IGN;
    return false;
}

void signal_catch(int sig, void (*catcher)(int)) {
    struct sigaction action = {};
    action.sa_handler = catcher;
    sigemptyset(&action.sa_mask);
    (void)sigaction(sig, &action, nullptr);  // fails for a bad number only
}

static int wait_with(struct pollfd *fds, nfds_t count, long timeout_ns, const sigset_t *mask) {
    const int ready = os_poll(fds, count, timeout_ns, mask);
    const int err = errno;
    // With a descriptor ready, no signal is served: a program that floods would keep them out.
    if (ready > 0) os_serve_signals(mask);
    errno = err;
    return ready;
}

int wait_ready(struct pollfd *fds, nfds_t count, long timeout_ns) {
    return wait_with(fds, count, progdone != 0 ? 0 : timeout_ns, &Wait_mask);
}

int wait_ready_no_child(struct pollfd *fds, nfds_t count, long timeout_ns) {
    return wait_with(fds, count, timeout_ns, &No_child_mask);
}

bool is_ready(int fd, short events) {
    struct pollfd one = {fd, events, 0};
    return os_poll(&one, 1, 0, nullptr) == 1 && (one.revents & events) != 0;
}

void wait_window_open(Window which) {
    (void)sigprocmask(SIG_SETMASK, which == Window::write ? &No_child_mask : &End_mask, nullptr);
}

void wait_window_close() { (void)sigprocmask(SIG_SETMASK, &Shut_mask, nullptr); }

long long now_ns() {
    struct timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 * kMillisecond + now.tv_nsec;
}

static Channel own_channel(int fd, int flags) {
    const int own = os_reopen_terminal(fd, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own >= 0) return {own, true};
    return {fd, false};
}

void terminal_open() {
    Keyboard = own_channel(STDIN_FILENO, O_RDONLY);
    Program_screen = own_channel(STDOUT_FILENO, O_WRONLY);
    const int editor = isatty(STDERR_FILENO) != 0 ? STDERR_FILENO : STDOUT_FILENO;
    Editor_screen = own_channel(editor, O_WRONLY);
}

int keyboard_fd() { return Keyboard.fd; }

ssize_t keyboard_read(void *buf, std::size_t len) {
    if (Keyboard.own) return read(Keyboard.fd, buf, len);
    // The descriptor is shared with others and blocks: look first, and let signals end a sleep that
    // a flush of the queue in between would cause.
    if (keyboard_waiting() == 0) {
        struct pollfd fd = {Keyboard.fd, POLLIN, 0};
        if (os_poll(&fd, 1, 0, nullptr) == 0) {
            errno = EAGAIN;
            return -1;
        }
    }
    wait_window_open(kWindowWrite);
    const ssize_t n = read(Keyboard.fd, buf, len);
    const int err = errno;
    wait_window_close();
    errno = err;
    return n;
}

int keyboard_waiting() {
    int count = 0;
    return ioctl(Keyboard.fd, FIONREAD, &count) == 0 && count > 0 ? count : 0;
}

static ssize_t write_once(const Channel &to, const char *data, std::size_t len) {
    if (to.own) return write(to.fd, data, len);
    if (Hurry) {
        if (!is_ready(to.fd, POLLOUT)) {
            errno = EAGAIN;
            return -1;
        }
        return write(to.fd, data, len < 64 ? len : 64);
    }
    wait_window_open(kWindowWrite);  // a ^S sleeps in this call
    const ssize_t n = write(to.fd, data, len);
    const int err = errno;
    wait_window_close();
    errno = err;
    return n;
}

int screen_write(Screen to, const char *data, std::size_t len) {
    Rest = {to == Screen::program ? &Program_screen : &Editor_screen, data, len};
    while (Rest.len > 0) {
        const ssize_t n = write_once(*Rest.to, Rest.data, Rest.len);
        if (n >= 0) {
            Rest.data += n;
            Rest.len -= static_cast<std::size_t>(n);
            if (Between_writes != nullptr) Between_writes();
            continue;
        }
        const bool later = errno == EAGAIN || errno == EINTR;
        struct pollfd fd = {Rest.to->fd, POLLOUT, 0};
        if (!later || Hurry || (wait_ready_no_child(&fd, 1, kNoTimeout) < 0 && errno != EINTR)) {
            Rest.len = 0;
            return later && Hurry ? 0 : -1;
        }
        if (Between_writes != nullptr) Between_writes();
    }
    return 0;
}

void screen_hurry() { Hurry = true; }

void screen_finish_write() {
    while (Rest.len > 0) {
        if (!is_ready(Rest.to->fd, POLLOUT)) break;
        // Without a descriptor of its own only a short piece is sure not to sleep.
        const std::size_t piece = Rest.to->own || Rest.len < 64 ? Rest.len : 64;
        const ssize_t n = write(Rest.to->fd, Rest.data, piece);
        if (n <= 0) break;
        Rest.data += n;
        Rest.len -= static_cast<std::size_t>(n);
    }
}

bool screen_write_now(Screen to, const char *data, std::size_t len) {
    constexpr long kPatience = 100 * kMillisecond;
    const Channel &channel = to == Screen::program ? Program_screen : Editor_screen;
    // Of a write that may be sleeping it isn't known how far it has come.
    if (Rest.len > 0 && !Rest.to->own) return false;
    screen_finish_write();
    if (Rest.len > 0) return false;
    while (len > 0) {
        struct pollfd fd = {channel.fd, POLLOUT, 0};
        if (os_poll(&fd, 1, kPatience, nullptr) != 1 || (fd.revents & POLLOUT) == 0) return false;
        const ssize_t n = write(channel.fd, data, len);
        if (n < 0 && errno != EAGAIN && errno != EINTR) return false;
        if (n <= 0) continue;
        data += n;
        len -= static_cast<std::size_t>(n);
    }
    return true;
}

void screen_drain() {
    int unsent = 0;
    // Nothing unsent is the rule on a pseudo-terminal, and one call cheaper than a drain in a
    // window.
    if (ioctl(Editor_screen.fd, TIOCOUTQ, &unsent) == 0 && unsent == 0) return;
    wait_window_open(kWindowWrite);
    (void)tcdrain(Editor_screen.fd);  // cut short by a signal, the output goes on by itself
    wait_window_close();
}
