// shown.h: what the row has to show, told from line, prompt and window of either editor.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "edit.h"
#include "emacs/emacs_internal.h"
#include "require.h"
#include "vi/vi_internal.h"

namespace fuzz {

// What the row has to show from screen column `from` on, and the cursor's column, -1 where it can
// be anywhere.
struct Expected {
    std::string cells;
    int from = 0;
    int column = -1;
};

[[noreturn]] inline void fail_row(const std::string &shown, int at, const std::string &wanted,
                                  int cursor) {
    (void)std::fprintf(stderr, "shown, cursor %d:\n[%s]\nwanted, cursor %d:\n[%s]\n", at,
                       shown.c_str(), cursor, wanted.c_str());
    std::abort();
}

inline bool in_vi() { return opt_flag == kStyleVi; }

// Screen column of the window, -1 when that depends on what the program has written.
inline int window_base() {
    if (in_vi()) return editb.e_crlf != 0 ? editb.e_plen : -1;
    return emacs::cr_ok ? 0 : -1;
}

inline int window_first() { return in_vi() ? vi::win_first() : emacs::offset; }

// The line as it stands; `sent`: without the newline that ends it.
inline std::string line(bool sent) {
    const int len = text_len() - (in_vi() && !sent && vi::end_blank ? 1 : 0);
    return {editb.e_inbuf, editb.e_inbuf + len};
}

// The characters that show the line, at most 258 columns and the rest of the last character, and
// the cursor's column. In emacs the prompt stands in front of them.
struct Image {
    std::string cells;
    int cursor;
};
inline Image image(bool sent) {
    constexpr std::size_t kLastColumn = 258;
    std::string cells;
    if (!in_vi()) cells.assign(editb.e_prompt + 1, static_cast<std::size_t>(editb.e_plen));
    int first = -1, behind = -1, index = 0;
    for (const char c : line(sent)) {
        if (cells.size() >= kLastColumn) break;
        const int start = static_cast<int>(cells.size());
        if (c == '\t')
            cells.append(8 - cells.size() % 8, ' ');
        else if (is_printable(byte_of(c)))
            cells += c;
        else
            (cells += '^') += static_cast<char>(c ^ 64);
        if (index++ != editb.e_cur) continue;
        first = start;
        behind = static_cast<int>(cells.size());
    }
    const int end = static_cast<int>(cells.size());
    if (!in_vi()) return {cells, first >= 0 ? first : end};
    if (behind < 0) behind = editb.e_cur < 0 ? 0 : end;
    return {cells, vi::view_mode == vi::MODE_INPUT ? behind : std::max(behind - 1, 0)};
}

// A character typed behind the image's last column is echoed all the same.
inline bool up_to_date() {
    return Extended != 0 || in_vi() || static_cast<int>(image(false).cells.size()) < kMaxLine;
}

inline Expected expected(int base, bool sent) {
    const auto width = static_cast<std::size_t>(editb.e_wsize);
    const auto first = static_cast<std::size_t>(window_first());
    const auto prompt = static_cast<std::size_t>(editb.e_plen);
    auto [cells, cursor] = image(sent);
    const bool more = cells.size() > first + width;
    const bool before = in_vi() ? first > 0 && cells.size() > width : first > prompt;
    cells.erase(0, first);
    cells.resize(width, ' ');
    cells += more ? (before ? '*' : '>') : (before ? '<' : ' ');
    cursor -= window_first();
    require(sent || (cursor >= 0 && cursor < editb.e_wsize + (in_vi() ? 1 : 0)));
    const bool known = window_base() >= 0;
    const int from = known ? window_base() : base;
    if (in_vi() && known) return {editb.e_prompt + 1 + cells, 0, from + cursor};
    // What the program has written in front of the line is not the editor's.
    if (!in_vi() && !known) return {cells.substr(prompt), from + editb.e_plen, from + cursor};
    return {cells, from, from + cursor};
}

}  // namespace fuzz
