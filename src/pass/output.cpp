// output.cpp: the program's output, from the master to the screen and to the capture of the prompt.
// Reads come between two waits; the writes to the screen are waits themselves, in which signals are
// served, but for SIGCHLD.
#include "output.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "edit.h"
#include "edit/prompt.h"
#include "edit/seen.h"
#include "edit_wait.h"
#include "mode.h"
#include "pace.h"
#include "pass.h"
#include "run.h"
#include "send.h"
#include "wait.h"
#include "waits.h"

// Output relayed before a line is written (bytes).
static constexpr unsigned long kRelayFirst = 65536;
// What a program leaves behind is relayed up to this size.
static constexpr unsigned long kLastWords = 1024UL * 1024;

unsigned long Relayed_bytes = 0;
int Input_flushed = 0;

// State: true once the process is ending; the terminal's mode is finish's business then.
static bool Ending = false;

static void show(const char *data, int len) {
    if (screen_write(Screen::program, data, static_cast<std::size_t>(len)) != 0)
        fatal_message("morp: write error to stdout");
}

static void relay_data(char *data, int len) {
    char late = '\0';
    const int skip = echo_to_drop(data, len, &late);
    data += skip;
    len -= skip;
    if (len == 0) return;
    pass_before_output();
    if (late != '\0') show(&late, 1);
    show(data, len);
    e_setup_prime(data, len);
    Relayed_bytes += static_cast<unsigned long>(len);
    line_after_output();
}

// Reads and relays one packet, or as much of it as `size` bytes hold.
static int relay_packet(int fd, std::size_t size) {
    line_before_output(fd);
    nread = static_cast<int>(read(fd, buffo, size));
    if (nread <= 0) {
        // Nobody has it open (EIO), or it is out of order: tried again in a while.
        if (nread == 0 || (errno != EAGAIN && errno != EINTR)) Master_hung_up = 1;
        return Child_dead != 0 ? -1 : 0;
    }
    const int in_force = Vesk_on;
    const int silent = Pty_raw_or_cbreak;
    (void)check_fd_mode(fd);  // editing goes on as before when the settings can't be read
    const int header = static_cast<unsigned char>(buffo[0]);
    if (header == TIOCPKT_DATA) {
        if (nread > 1 && in_force != 0 && Vesk_on == 0 && !Ending) {
            // A program that has gone raw counts on its line feeds being left alone from the first.
            pass_before_output();
            assert_user_mode();
        }
        // What was printed without echo, or may have been, may hold a secret.
        if (silent == 0 && Pty_raw_or_cbreak == 0)
            seen_take(buffo + 1, nread - 1);
        else
            seen_break();
        if (nread > 1) relay_data(buffo + 1, nread - 1);
    } else {
        // The system reports a status before the data that were there first. Only output that was
        // thrown away takes the echo with it.
        if ((header & TIOCPKT_FLUSHWRITE) != 0) echo_disarm();
        if ((header & TIOCPKT_FLUSHREAD) != 0) {
            Input_flushed = 1;
            line_flushed();
        }
    }
    return 0;
}

int handle_fd_stdout(int fd) { return relay_packet(fd, kPacketSize); }

void relay_rest_of_piece(int fd) {
    constexpr int kMostBytes = 128;
    const long long limit = now_ns() + 50 * kMillisecond;  // a flood needs microseconds
    for (int i = 0; i < kMostBytes && out_row_in_piece() && Vesk_on != 0; i++) {
        const long left = static_cast<long>(std::max(limit - now_ns(), 0LL));
        struct pollfd fds[2];
        const int ready = wait_terminals(fd, false, false, left, fds);
        if (progdone != 0 || ready <= 0 || !master_ready(fds)) return;
        (void)relay_packet(fd, 2);  // the header and one byte
    }
}

void relay_waiting(int fd) {
    const unsigned long from = Relayed_bytes;
    while (Relayed_bytes - from < kRelayFirst) {
        if (!is_ready(fd, POLLIN)) return;
        (void)handle_fd_stdout(fd);
    }
}

int handle_fd_except(int, int *except_handled) {
    *except_handled = 0;  // the report is consumed by the read that follows
    return 0;
}

void pass_last_words() {
    const unsigned long from = Relayed_bytes;
    Ending = true;
    int interrupted = 0;
    while (Relayed_bytes - from < kLastWords && interrupted < kInterruptions) {
        Master_hung_up = 0;
        errno = 0;
        (void)handle_fd_stdout(master_fd);
        if (nread > 0) continue;
        if (errno != EINTR) return;  // EAGAIN: nothing left. EIO: nobody has it open
        interrupted++;
    }
}

void pass_last_words_at_once() {
    screen_finish_write();
    screen_hurry();
    if (master_fd >= 0) pass_last_words();
}
