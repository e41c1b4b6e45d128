// recall.cpp: moves through the history, and the line that ^O asks for.
#include <algorithm>
#include <cstring>

#include "edit/chars.h"
#include "emacs.h"
#include "emacs_internal.h"

namespace emacs {

// State: of the line read, whether it was fetched for ^O, and from where.
static bool fetched = false;
static histloc fetched_from = {0, 0};

bool copy_history_line(TextCopy &copy) {
    char bytes[kLineBuffer];
    if (hist_copy(bytes, editb.e_hline, editb.e_hloff) < 0) return false;
    // Behind the longest line newline and NUL still fit.
    const int room = std::min(Limits.text, Limits.joint - 2 - editb.e_plen);
    const int len = static_cast<int>(std::strlen(bytes));
    if (len > room) e_ringbell();
    copy.len = units_from_bytes(copy.unit, room, bytes, len);
    return true;
}

void recall_line() {
    static TextCopy copy;
    if (copy_history_line(copy)) (void)text_set(copy.unit, copy.len);
}

static After show_location() {
    editb.e_hline = location.his_command;
    editb.e_hloff = location.his_line;
    recall_line();
    return After::drawline;
}

// The oldest command in reach, -1 when there is none. Numbers in reach need not all be taken: the
// history may be shorter, or start with a number found in the middle of its file.
static int oldest_command() {
    if (fc_fix == nullptr) return -1;
    for (int n = std::max(editb.e_hismin, 1); n < editb.e_hismax; n++)
        if (hist_position(n) >= 0) return n;
    return -1;
}

After downarrow(Command &command) {
    location = hist_locate(editb.e_hline, editb.e_hloff, command.count);
    if (location.his_command > editb.e_hismax) {
        e_ringbell();
        return After::next_key;
    }
    return show_location();
}

After uparrow(Command &command) {
    location = hist_locate(editb.e_hline, editb.e_hloff, -command.count);
    if (location.his_command < editb.e_hismin) {
        e_ringbell();
        location = {oldest_command(), 0};
        if (location.his_command < 0) return After::next_key;
    }
    return show_location();
}

After search_history(Command &command) {
    search(command.count);
    return After::drawline;
}

void fetch_next_line() {
    fetched = CntrlO != 0;
    CntrlO = 0;
    if (!fetched) return;
    fetched_from = location;
    editb.e_hline = location.his_command;
    editb.e_hloff = location.his_line;
    (void)copy_history_line(*editb.e_tmp);
    e_ungetchar(ctrl('Y'));
}

void give_fetched_back() {
    if (!fetched || !text_equals(*editb.e_tmp)) return;
    location = fetched_from;
    CntrlO = 1;
    e_taken_len = 0;
}

}  // namespace emacs

void emacs_recorded() {
    using namespace emacs;
    if (CntrlO == 0) return;
    location = hist_locate(location.his_command, location.his_line, 1);
    CntrlO = fc_fix != nullptr && location.his_command < fc_fix->fixind ? 1 : 0;
}

bool emacs_has_line() { return emacs::CntrlO != 0; }
