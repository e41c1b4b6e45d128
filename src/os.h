// os.h: what systems do each in a way of their own, and what Linux alone has. os/linux.cpp is for
// Linux; os/portable.cpp does the same, or the next best, with what POSIX has, and is compiled
// elsewhere and with MORP_PORTABLE. Includes nothing of morp's.
#pragma once

#include <poll.h>
#include <sys/types.h>
#include <termios.h>
#include <csignal>
#include <cstddef>
#include <cstdio>

#if defined(__linux__) && !defined(MORP_PORTABLE)
#define MORP_LINUX 1
// Terminal modes that others don't know.
inline constexpr tcflag_t kIuclc = IUCLC;
inline constexpr tcflag_t kXcase = XCASE;
#else
inline constexpr tcflag_t kIuclc = 0;
inline constexpr tcflag_t kXcase = 0;
#endif

// ---- Waiting (os/linux.cpp, os/portable.cpp, as all that follows).

// As ppoll: sleeps until a descriptor is ready, a signal that `mask` lets through was served, or
// `timeout_ns` has passed; negative: without an end. `mask` null: that of the process.
// Portable: POLLIN, POLLPRI and POLLOUT alone are told, and a descriptor is below FD_SETSIZE, else
// EINVAL.
int os_poll(struct pollfd *fds, nfds_t count, long timeout_ns, const sigset_t *mask);
// Serves the signals that are pending and that `mask` lets through.
void os_serve_signals(const sigset_t *mask);
// Takes a pending signal `sig` away, which is blocked. False where there is none.
bool os_take_signal(int sig);

// ---- Terminals.

// Opens the terminal that descriptor `fd`, 0 to 2, is, once more. -1 where that can't be done.
int os_reopen_terminal(int fd, int flags);
// Opens the slave of `master`. -1 with errno.
int os_open_slave(int master, int flags);
// Makes the terminal `fd` that of the session that has just begun.
void os_take_terminal(int fd);
// Sends `sig` to the foreground group of the terminal behind `master`. False where that can't be
// done.
bool os_signal_foreground(int master, int sig);

// ---- Processes.

// A pipe that no program inherits. 0, or -1 with errno.
int os_pipe(int ends[2]);
// No core of this process is written, wherever to.
void os_no_core();
// Short sleeps are not made longer to save power.
void os_short_sleeps();
// What process `pid` does with signal `sig`.
enum class SignalUse { default_, other, unknown };
SignalUse os_signal_use(pid_t pid, int sig);
// The parent of process `pid`, -1 when it isn't known.
pid_t os_parent_of(pid_t pid);

// ---- Files.

// Stores the path of the working directory of `pid`, or of what descriptor `fd` is open on, without
// a NUL, asking no file system. Returns its length, 0 when it isn't known.
std::size_t os_folder_of(pid_t pid, char *path, std::size_t size);
std::size_t os_path_of(int fd, char *path, std::size_t size);
// Opens the working directory of `pid`, for openat alone. -1 where that can't be done.
int os_open_folder_of(pid_t pid);
// The table of mounts, as /proc/self/mountinfo has it. Returns its length, 0 when it isn't known.
std::size_t os_mounts(char *table, std::size_t size);
// Flag of fstatat: nothing is mounted for a look.
extern const int kNoAutomount;

// The names in a folder, one by one.
enum class NameKind { folder, link, other, unknown };
struct FolderNames {
    int fd;        // the folder, which stays the caller's
    void *stream;  // null before the first name
    long at;       // in the block, and its bytes
    long size;
};
// The next name, valid until the call after it; null at the end, or where no more can be read.
const char *os_next_name(FolderNames &names, NameKind &kind);
void os_end_names(FolderNames &names);

// Forgets what was written to `file` and has not left it.
void os_purge(std::FILE *file);

// ---- Text.

// The last `c` of the `len` bytes at `data`, or null.
const void *os_last_byte(const void *data, int c, std::size_t len);
// Takes the characters of the locale that the environment names; where it can't be had, and `utf8`
// says that it asks for UTF-8, those of "C.UTF-8". Else they stay those of "C". (os/locale.cpp)
void os_take_locale(bool utf8);
