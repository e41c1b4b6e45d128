// editlib.cpp: see editlib.h. The history is opened and the style fixed by the first edited read.
#include "editlib.h"

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "edit.h"
#include "edit/chars.h"
#include "edit/complete.h"
#include "edit/decode.h"
#include "edit/prompt.h"
#include "emacs.h"
#include "extended.h"
#include "history.h"
#include "morp_defs.h"
#include "msg.h"
#include "run.h"
#include "utils.h"
#include "vi.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp editlib 1.0";

static constexpr int editfd =
    STDIN_FILENO;          // the user's terminal; reads elsewhere are never edited
static char beenhere = 0;  // 1 from the first edited read on

// State: the line being typed, as far as it went out in pieces without a newline. What is longer is
// not recorded.
static char Typed[4095];
static int Typed_len = 0;

// State: chosen once a run.
static bool Repeats_recorded = true;
static bool Refusal_told = false;

void kread_forget() { Typed_len = 0; }

void kread_reset_for_test() {
    beenhere = 0;
    kread_forget();
}

static bool is_newest(std::string_view command) {
    static char newest[kLineBuffer];
    if (fc_fix == nullptr) return false;
    hist_eof();  // another run may have recorded one
    return hist_copy(newest, fc_fix->fixind - 1, -1) >= 0 && command == newest;
}

// Records the typed line without its trailing white space; a line of white space only is not
// recorded, nor in extended mode one that is the newest command.
static void record_typed() {
    int kept = Typed_len;
    while (kept > 0 && is_blank(byte_of(Typed[kept - 1]))) kept--;
    const std::size_t len = static_cast<std::size_t>(kept);
    if (kept == 0 || (!Repeats_recorded && is_newest({Typed, len}))) return;
    hist_record(Typed, len);
}

// Adds what the editor hands on; with the newline it makes a command.
static void gather(const char *piece, int len) {
    const int room = static_cast<int>(sizeof Typed) - Typed_len;
    const int taken = std::min(len, room);
    memcpy(Typed + Typed_len, piece, static_cast<std::size_t>(taken));
    Typed_len += taken;
    if (piece[len - 1] != '\n') return;
    record_typed();
    emacs_recorded();
    kread_forget();
}

void kread_begin() {
    const bool extended = Extended != 0;
    opt_flag = get_editor_type();
    limits_begin(extended);
    chars_begin(extended);
    rows_begin(extended);
    complete_begin(extended);
    decode_begin(!extended, opt_flag == kStyleVi ? EscapeKey::key : EscapeKey::prefix);
    emacs_begin(extended);
    hist_begin(extended);
    Repeats_recorded = !extended;
    Refusal_told = extended;
}

static bool is_control(char c) { return byte_of(c) < ' ' || byte_of(c) == 127; }

// Names the history that could not be used, above the line that is about to begin.
static void tell_refusal() {
    const char *why;
    const char *name = hist_refused(&why);
    if (name == nullptr) return;
    message_format("%s: can't use the history: %s: %s", Program_name, why, name);
    const std::size_t len = strlen(Message_buf);
    std::replace_if(Message_buf, Message_buf + len, is_control, '?');
    if (isatty(STDERR_FILENO) == 0) {
        (void)fprintf(stderr, "%s\n", Message_buf);  // nowhere left to report a failure
        return;
    }
    e_above_begin();
    e_write(Message_buf, len);
    e_write("\n", 1);
    e_above_end();
    e_flush();
}

bool kread_has_line() { return emacs_has_line(); }

int kread(int fd, char *line, int n) {
    const bool edited = fd == editfd;
    if (edited && beenhere == 0) {
        beenhere = 1;
        (void)hist_open();  // without a history the editors find none
        opt_flag = get_editor_type();
        if (Refusal_told) tell_refusal();
    }
    int result;
    switch (edited ? opt_flag & 15 : 0) {
        case kStyleGmacs:
        case kStyleEmacs:
            result = emacs_read(fd, line, n);
            break;
        case kStyleVi:
            result = vi_read(fd, reinterpret_cast<unsigned char *>(line), n);
            break;
        default:
            (void)fflush(stderr);
            result = static_cast<int>(read(fd, line, static_cast<std::size_t>(n)));
    }
    if (edited && result > 0)
        gather(line, result);
    else if (edited && e_nothing == 0)
        kread_forget();
    return result;
}
