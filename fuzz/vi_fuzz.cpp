// vi_fuzz.cpp: the vi-like editor under any keys. After each burst the row shows prompt and line as
// far as the window goes, the marker and the cursor where they belong; a line that is sent stands
// on the row that it leaves.
#include "vi.h"

#include <algorithm>

#include "editor_run.h"
#include "vi/vi_internal.h"

using namespace fuzz;

static void reset() { vi_reset_for_test(); }
static bool up_to_date() { return true; }
static int base() { return editb.e_crlf != 0 ? editb.e_plen : -1; }

static std::string_view line(bool sent) {
    const int blank = !sent && vi::end_blank ? 1 : 0;
    std::string_view text(editb.e_inbuf, static_cast<std::size_t>(editb.e_eol + 1 - blank));
    if (sent && !text.empty() && text.back() == '\n') text.remove_suffix(1);
    return text;
}

// The line's image, and the cursor's column.
static std::string image(bool sent, int &cursor) {
    int column = -1;
    int behind = -1;
    std::string cells = image_of(line(sent), 0, editb.e_cur, column, behind);
    if (behind < 0) behind = editb.e_cur < 0 ? 0 : static_cast<int>(cells.size());
    cursor = vi::view_mode == vi::MODE_INPUT ? behind : std::max(behind - 1, 0);
    return cells;
}

static int cursor_column() {
    int cursor = 0;
    (void)image(false, cursor);
    return cursor - vi::win_first();
}

static Expected expected(int from, bool sent) {
    const auto width = static_cast<std::size_t>(editb.e_wsize);
    const auto first = static_cast<std::size_t>(vi::win_first());
    int cursor = 0;
    std::string cells = image(sent, cursor);
    char marker = ' ';
    if (cells.size() > width) marker = first == 0 ? '>' : cells.size() > first + width ? '*' : '<';
    cells.erase(0, first);
    cells.resize(width, ' ');
    cells += marker;
    cursor -= vi::win_first();
    require(sent || (cursor >= 0 && cursor <= editb.e_wsize));
    if (base() < 0) return {cells, from, from + cursor};
    return {std::string(editb.e_prompt + 1) + cells, 0, from + cursor};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static constexpr Editor kVi = {kStyleVi, reset,    base,      cursor_column,
                                   line,     expected, up_to_date};
    run_editor(kVi, data, size);
    return 0;
}
