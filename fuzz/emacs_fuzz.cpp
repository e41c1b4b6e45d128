// emacs_fuzz.cpp: the emacs-like editor under any keys. After each burst the row shows prompt and
// line as far as the window goes, the marker and the cursor where they belong; a line that is sent
// stands on the row that it leaves.
#include "emacs.h"

#include <algorithm>

#include "editor_run.h"
#include "emacs/emacs_internal.h"

using namespace fuzz;

static void reset() { emacs_reset_for_test(); }
static int base() { return emacs::cr_ok == 1 ? 0 : -1; }

static std::string_view line(bool sent) {
    std::string_view text = editb.e_inbuf;
    if (sent && !text.empty() && text.back() == '\n') text.remove_suffix(1);
    return text;
}

// Prompt and line, and the cursor's column.
static std::string image(bool sent, int &cursor) {
    int column = -1;
    int behind = -1;
    std::string cells = image_of(line(sent), editb.e_plen, editb.e_cur, column, behind);
    std::copy_n(editb.e_prompt + 1, editb.e_plen, cells.begin());
    cursor = column >= 0 ? column : static_cast<int>(cells.size());
    return cells;
}

// A character typed behind a quoted NUL, or behind the image's last column, is echoed all the same.
static bool up_to_date() {
    int cursor = 0;
    return emacs::scvalid == 1 && editb.e_cur <= emacs::line_length() &&
           static_cast<int>(image(false, cursor).size()) < kMaxLine;
}

static int cursor_column() {
    int cursor = 0;
    (void)image(false, cursor);
    return cursor - emacs::offset;
}

static Expected expected(int from, bool sent) {
    const auto width = static_cast<std::size_t>(editb.e_wsize);
    const auto offset = static_cast<std::size_t>(emacs::offset);
    const auto prompt = static_cast<std::size_t>(editb.e_plen);
    int cursor = 0;
    std::string cells = image(sent, cursor);
    const bool more = cells.size() > offset + width;
    const bool before = offset > prompt;
    cells.erase(0, offset);
    cells.resize(width, ' ');
    cells += more ? (before ? '*' : '>') : (before ? '<' : ' ');
    cursor -= emacs::offset;
    require(sent || (cursor >= 0 && cursor < editb.e_wsize));
    if (base() >= 0) return {cells, 0, cursor};
    // What the program has written in front of the line is not the editor's.
    return {cells.substr(prompt), from + editb.e_plen, from + cursor};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static constexpr Editor kEmacs = {kStyleEmacs, reset,    base,      cursor_column,
                                      line,        expected, up_to_date};
    run_editor(kEmacs, data, size);
    return 0;
}
