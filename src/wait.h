// wait.h: signals are served only in waits. Every signal that morp catches stays blocked from
// before the program is started; the calls here open the mask for one call that may sleep. So a
// catcher never cuts into stdio, malloc, the history or a half-done edit. Also the descriptors of
// the user's terminal that morp opens for itself, which never block.
#pragma once

#include <poll.h>
#include <sys/types.h>
#include <csignal>
#include <cstddef>
#include <ctime>

// The mask that the process was started with; the program gets it back.
extern sigset_t Start_mask;

// Blocks every signal that morp catches and remembers mask and dispositions as found; ignores
// SIGPIPE and SIGXFSZ. To be called before anything is caught.
void signals_block();
// In the child: mask and dispositions as signals_block found them.
void signals_restore();
// True when `sig` was ignored when the process started.
bool signal_was_ignored(int sig);
// Installs a catcher, without restart and with an empty mask.
void signal_catch(int sig, void (*catcher)(int));

extern volatile std::sig_atomic_t progdone;  // keyboard signal caught and not yet forwarded, 0 none
// Called between the pieces of a screen_write, with nothing half done; null for nothing.
extern void (*Between_writes)();

// Longest sleep of a wait, in nanoseconds; kNoTimeout sleeps until something happens.
inline constexpr long kNoTimeout = -1;
inline constexpr long kMicrosecond = 1000;
inline constexpr long kMillisecond = 1000 * kMicrosecond;

// The wait: sleeps until a descriptor is ready, a signal was served or `timeout_ns` has passed.
// Signals that came are served in every case, also while descriptors are ready. With `progdone` set
// it doesn't sleep. Returns as poll does: the number of ready descriptors, 0, or -1 with errno.
int wait_ready(struct pollfd *fds, nfds_t count, long timeout_ns);
// The same with SIGCHLD kept back, whose catcher may leave by a jump that would forget how far the
// caller has come; it sleeps with `progdone` set too.
int wait_ready_no_child(struct pollfd *fds, nfds_t count, long timeout_ns);

// True when `events` (POLLIN, POLLOUT) can be had from `fd` now.
bool is_ready(int fd, short events);

// Around one call that may sleep.
enum class Window { write, end };
inline constexpr Window kWindowWrite = Window::write;  // all but SIGCHLD
inline constexpr Window kWindowEnd = Window::end;      // SIGTERM and SIGHUP only
void wait_window_open(Window which);
void wait_window_close();

// Nanoseconds since some fixed moment, never going back.
long long now_ns();

// Opens descriptors of its own for the keyboard (0) and the screen (1, and 2 or 1 for the editors);
// where that is refused the given ones are used, in windows.
void terminal_open();

// The descriptor to poll for keys.
int keyboard_fd();
// Reads keys. Returns as read does; -1 with EAGAIN when there is none.
ssize_t keyboard_read(void *buf, std::size_t len);
// Number of bytes that can be read from the keyboard now.
int keyboard_waiting();

// Where output goes: the program's to standard output, the editors' to standard error.
enum class Screen { program, editor };
// Writes all of `data`, waiting for the terminal, signals served. Returns 0, or -1 with errno.
int screen_write(Screen to, const char *data, std::size_t len);
// For catchers that go on afterwards: writes `data` behind what an interrupted screen_write has
// left. False where the terminal doesn't take all of it within 100 ms.
bool screen_write_now(Screen to, const char *data, std::size_t len);
// Waits until the terminal has sent what was written.
void screen_drain();
// From now on output that the terminal doesn't take at once is dropped: the process is ending.
void screen_hurry();
// In a catcher that ends the process: writes the rest of an interrupted screen_write.
void screen_finish_write();
