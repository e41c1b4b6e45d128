// mode.cpp: who reads the user's keys, and so which mode the user's terminal is in. That follows
// from the user's wish, the program's terminal, and what the editors hold; it is answered here and
// nowhere else. Catchers run in waits only, and change none of it: every wait asks once more when
// it begins.
#include "mode.h"

#include <unistd.h>

#include "edit.h"
#include "editlib.h"
#include "marks.h"
#include "pass.h"
#include "run.h"
#include "send.h"
#include "tty.h"

// State of the whole run.
int Vesk_on_desired = 0;
int Vesk_on = 0;
int Pty_raw_or_cbreak = 0;

KeyReader wanted_mode() {
    if (Vesk_on == 0) return KeyReader::program;
    return e_wanted_mode() == kTtyRaw ? KeyReader::editor : KeyReader::driver;
}

void want_editing(int wanted) {
    Vesk_on_desired = wanted;
    Vesk_on = wanted;
}

int check_fd_mode(int fd) {
    const int noedit = tty_mode_noedit(fd, program_held_flags());
    if (noedit < 0) return -1;
    if (noedit == Pty_raw_or_cbreak) return 0;
    Pty_raw_or_cbreak = noedit;
    if (opt_flag != 0) Vesk_on = noedit != 0 ? 0 : Vesk_on_desired;
    return 0;
}

// The editor's own mode is refused: the driver's takes its place, and the line is read as it comes
// from there. Never on the way to the editor's mode: see edit/terminal.cpp.
static void set_cooked() {
    if (tty_cooked(STDIN_FILENO) != 0) fatal("can't set tty mode to cooked");
    if (tty_echo_set(STDIN_FILENO, 1) != 0) fatal("can't set echo on stdin on");
}

static void set_raw() {
    // Echo first: a key of a secret must not be shown in between.
    if (tty_echo_set(STDIN_FILENO, 0) != 0) fatal("can't set echo on stdin off");
    if (tty_raw(STDIN_FILENO) != 0) fatal("can't set tty mode to raw");
}

void assert_user_mode() {
    if (wanted_mode() == KeyReader::program) {
        set_raw();
        kread_forget();
    } else {
        if (e_assert_mode(STDIN_FILENO) == 0) return marks_assert(true);
        if (e_view != nullptr) fatal("can't set tty mode to raw");  // an editor works with it
        set_cooked();
    }
    e_leave_editing(STDIN_FILENO);
    marks_assert(false);
}
