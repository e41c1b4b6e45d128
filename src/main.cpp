// main.cpp: start-up: options, the record of the user's terminal, the program, the catchers, the
// name of the history file. Signals are blocked from before the terminal is read; nothing waits
// here.
#include "main.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "edit/chars.h"
#include "editlib.h"
#include "extended.h"
#include "msg.h"
#include "os.h"
#include "pass.h"
#include "pty.h"
#include "run.h"
#include "utils.h"
#include "wait.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp main 1.0";

// Their addresses are handed to the system, so they live as long as the process.
static char *argv_shell[2];
static char hist_buf[128];

static void sig_trap_general(int) {}  // while the program is being started

// Descriptors 0 to 2 may have been closed: nothing opened later may take their place.
static void fill_standard_descriptors() {
    if (fcntl(STDERR_FILENO, F_GETFD) >= 0) return;
    (void)dup2(STDOUT_FILENO, STDERR_FILENO);
}

static void parse_options(int argc, char **argv) {
    int option;
    while ((option = getopt(argc, argv, "m:")) != -1) {
        if (option != 'm') {
            message_print("usage: %s program\n", Program_name);
            exit(1);
        }
        Mode_vesk_init = atoi(optarg);
    }
}

static char **program_arguments(int argc, char **argv) {
    static_assert(sizeof argv_shell == 2 * sizeof(char *));
    if (optind < argc) return argv + optind;
    static char sh[] = "sh";
    char *shell = getenv("SHELL");
    argv_shell[0] = shell != nullptr ? shell : sh;
    return argv_shell;
}

// Publishes the name of the history file in morp's own environment.
static void publish_history_name(const char *program) {
    static char none[] = "Q_VXHISTFILE=";
    const char *name = getenv("Q_VXHISTFILE");
    const char *home = getenv("HOME");
    if (getenv("Q_VXNOHIST") != nullptr || (name == nullptr && home == nullptr)) {
        (void)putenv(none);
        return;
    }
    const char *parts[] = {none, name, "", "", ""};
    if (name == nullptr) {
        parts[1] = home;
        parts[2] = "/.";
        parts[3] = t_basename(program);
        parts[4] = "_history";
    }
    std::size_t size = 1;
    for (const char *part : parts) size += strlen(part);
    // A longer name stays whole: its storage is never freed either.
    char *assignment = size <= sizeof hist_buf ? hist_buf : static_cast<char *>(malloc(size));
    if (assignment == nullptr) return;
    assignment[0] = '\0';
    char *end = assignment;
    for (const char *part : parts) end = e_movstr(part, end);
    (void)putenv(assignment);
}

int morp_main(int argc, char **argv) {
    Program_name = t_basename(argc > 0 ? argv[0] : "morp");
    fill_standard_descriptors();
    extended_begin();
    parse_options(argc, argv);
    char **program = program_arguments(argc, argv);
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        message_print("%s: stdin and stdout must be a terminal\n", Program_name);
        exit(1);
    }
    signals_block();  // from here on no change of size is missed
    if (tty_info_get(fileno(stdin), &Tty_original) != 0) {
        message_format("%s: can't get original tty mode", Program_name);
        perror(Message_buf);
        exit(1);
    }
    suspended_tty = Tty_original;
    terminal_open();
    kread_begin();
    // The program's terminal erases whole characters in what it reads unedited.
    if (chars_utf8()) pty_input_flags = IUTF8;
    signal_catch(SIGCHLD, sig_trap_general);
    const pid_t pid = pty_fork(&master_fd, program);
    // The waits for a program to take a line are short; the program, started already, keeps its
    // own.
    os_short_sleeps();
    pty_pkt_enable(master_fd);
    signal_catch(SIGTERM, sig_trap_sigterm);
    if (!signal_was_ignored(SIGHUP)) signal_catch(SIGHUP, sig_trap_sigterm);
    signal_catch(SIGWINCH, sig_trap_sigwinch);
    publish_history_name(program[0]);
    Child_pid = pid;
    const int failure = pty_start_status();
    if (failure != 0) {
        pass_last_words();
        finish(Extended != 0 ? failure : 1);
    }
    pass_all(master_fd);
    if (Extended != 0) finish_as_program();
    finish(0);
}
