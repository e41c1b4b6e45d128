// editlib.cpp: see editlib.h. The history is opened and the style fixed by the first edited read.
#include "editlib.h"

#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "edit.h"
#include "emacs.h"
#include "history.h"
#include "morp_defs.h"
#include "utils.h"
#include "vi.h"

[[gnu::used]] static const char kVersion[] = "@(#)morp editlib 1.0";

static constexpr int editfd =
    STDIN_FILENO;          // the user's terminal; reads elsewhere are never edited
static char beenhere = 0;  // 1 from the first edited read on

void kread_reset_for_test() { beenhere = 0; }

// Records the line without its trailing white space; a line of white space only is not recorded.
static void record_line(const char *line, int len) {
    int kept = len;
    while (kept > 0 && is_blank(byte_of(line[kept - 1]))) kept--;
    if (kept > 0) hist_record(line, static_cast<std::size_t>(kept));
}

int kread(int fd, char *line, int n) {
    const bool edited = fd == editfd;
    if (edited && beenhere == 0) {
        beenhere = 1;
        (void)hist_open();  // without a history the editors find none
        opt_flag = get_editor_type();
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
    if (edited && fc_fix != nullptr && result > 0) record_line(line, result);
    return result;
}
