// edit_wait.cpp: the editors' wait. While an editor waits for a key, the program may print: the
// line steps aside, the output is relayed, and the line comes back when output has been quiet for a
// while or a key is there. The program may also leave line input, which takes the edit away.
// Signals are served in the wait; the SIGCHLD catcher may leave it for good.
#include "edit_wait.h"

#include <algorithm>

#include "child.h"
#include "edit.h"
#include "edit/decode.h"
#include "edit/host.h"
#include "edit/prompt.h"
#include "mode.h"
#include "output.h"
#include "pace.h"
#include "pass.h"
#include "run.h"
#include "wait.h"
#include "waits.h"

// Output stays hidden this long after the last piece, so that a program that prints in pieces
// doesn't make the line flicker.
static constexpr long kQuiet = 20 * kMillisecond;
static constexpr long kQuietInSequence = 200 * kMillisecond;  // the rest is sure to come
// So long after the last of the sizes that a terminal takes while the user pulls at its window.
static constexpr long kSizeQuiet = 50 * kMillisecond;

// State of one wait, reset when it begins. The line has stepped aside for output, and comes back at
// that moment (0: none is set yet).
static bool Stepped_aside = false;
static long long Back_ns = 0;
// The terminal's columns at the last look; at that moment the line is drawn for them (0: it is).
static int Columns = 0;
static long long Resized_ns = 0;

// State of the whole run: in extended mode the line follows the terminal's width.
static bool Follows_width = false;

void edit_wait_begin(bool extended) { Follows_width = extended; }

// State: until this moment a key that is there already is read without a wait.
static long long Burst_end_ns = 0;

static void look_at_width() {
    const int columns = e_columns();
    if (!Follows_width || columns == Columns) return;
    Columns = columns;
    Resized_ns = now_ns() + kSizeQuiet;
}

static void draw_resized() {
    if (Resized_ns == 0) return;
    Resized_ns = 0;
    e_view->resized();
    e_flush();
}

void pass_before_output() {
    if (e_view == nullptr || Stepped_aside) return;
    draw_resized();
    e_view->step_off();
    e_flush();
    Stepped_aside = true;
}

static void come_back() {
    Back_ns = 0;
    if (!Stepped_aside) return;
    Stepped_aside = false;
    e_view->come_back();
    e_flush();
}

// When the line comes back, or is drawn anew; 0 is never.
static long long drawn_ns() { return std::max(Back_ns, Resized_ns); }

// How long the wait may sleep: until the line is drawn, or until the moment `late_ns`; 0 is none.
static long until_due(long long late_ns) {
    const long long drawn = drawn_ns();
    if (drawn == 0 && late_ns == 0) return kNoTimeout;
    const long long due = drawn == 0 ? late_ns : late_ns == 0 ? drawn : std::min(drawn, late_ns);
    return static_cast<long>(std::max(due - now_ns(), 0LL));
}

// The program left line input: what the edit holds becomes keys typed ahead.
static KeyWait taken_away() {
    pass_before_output();
    Stepped_aside = false;
    e_taken_len = Input_flushed != 0 ? 0 : e_view->text(e_taken);
    if (Input_flushed == 0)
        e_taken_len += decode_unfinished(e_taken + e_taken_len, kLineBuffer - e_taken_len);
    return KeyWait::taken;
}

// A keyboard signal ends the edit; its text stays on the row, unless it had stepped aside.
static KeyWait interrupted() {
    Resized_ns = 0;
    if (!Stepped_aside) {
        e_row_stale = 1;
        out_row_forget();
    }
    return KeyWait::interrupted;
}

static void redraw_after_resume() {
    if (Resumed == 0) return;
    Resumed = 0;
    come_back();
    if (Resized_ns == 0) e_view->redraw();
    draw_resized();
    e_flush();
}

// Relays the output that a wait has found, and brings the line back where it is time. True when a
// key is there for the editor.
static bool serve(const struct pollfd *fds, int ready) {
    look_at_width();
    if (ready > 0 && master_ready(fds)) {
        (void)handle_fd_stdout(master_fd);
        const long quiet = out_row_in_sequence() ? kQuietInSequence : kQuiet;
        if (Stepped_aside) Back_ns = now_ns() + quiet;
    }
    const bool key = ready > 0 && fds[kKeyboardSlot].revents != 0;
    if (key && Stepped_aside) relay_rest_of_piece(master_fd);
    if (key && Vesk_on != 0) (void)check_fd_mode(master_fd);
    if (wanted_mode() == KeyReader::program) return false;
    if (key || (drawn_ns() != 0 && now_ns() >= drawn_ns())) {
        come_back();
        draw_resized();
    }
    return key;
}

void pass_keys_seen() { Burst_end_ns = now_ns() + kMillisecond; }

// The wait has served signals and output within the last millisecond, and the program, which is
// looked at for each key, still reads lines.
bool pass_look_for_key() {
    if (progdone != 0 || Resumed != 0 || now_ns() >= Burst_end_ns) return false;
    if (keyboard_waiting() == 0) return false;  // a key typed singly pays for no more than this
    (void)check_fd_mode(master_fd);
    Input_flushed = 0;
    return Vesk_on != 0;
}

KeyWait pass_wait_key(long timeout_ns) {
    Stepped_aside = false;
    Back_ns = 0;
    Columns = e_prompt_columns();
    Resized_ns = 0;
    Burst_end_ns = 0;
    const long long late_ns = timeout_ns == kNoTimeout ? 0 : now_ns() + timeout_ns;
    line_idle();
    e_flush();
    for (;;) {
        if (progdone != 0) return interrupted();
        if (wanted_mode() == KeyReader::program) return taken_away();
        assert_user_mode();
        look_at_width();
        redraw_after_resume();
        struct pollfd fds[2];
        const int ready = wait_terminals(master_fd, true, false, until_due(late_ns), fds);
        if (progdone != 0) return interrupted();
        if (!serve(fds, ready)) {
            const bool late = late_ns != 0 && now_ns() >= late_ns;
            if (!late || Stepped_aside || wanted_mode() == KeyReader::program) continue;
            return KeyWait::late;
        }
        Input_flushed = 0;
        pass_keys_seen();
        return KeyWait::ready;
    }
}
