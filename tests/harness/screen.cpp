#include "harness/screen.h"

#include <vterm.h>

#include <algorithm>

namespace harness {
namespace {

void append_utf8(std::string &out, std::uint32_t c) {
    const auto put = [&](std::uint32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xc0 | c >> 6);
        put(0x80 | (c & 0x3f));
    } else {
        if (c >= 0x10000) put(0xf0 | c >> 18);
        put(c >= 0x10000 ? 0x80 | (c >> 12 & 0x3f) : 0xe0 | c >> 12);
        put(0x80 | (c >> 6 & 0x3f));
        put(0x80 | (c & 0x3f));
    }
}

std::string trimmed(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

}  // namespace

Screen::Screen(int rows, int cols, bool utf8)
    : term_(vterm_new(rows, cols)),
      screen_(vterm_obtain_screen(term_)),
      rows_(rows),
      cols_(cols),
      utf8_(utf8) {
    vterm_set_utf8(term_, 1);
    vterm_screen_enable_altscreen(screen_, 1);
    vterm_screen_reset(screen_, 1);
}

Screen::~Screen() { vterm_free(term_); }

void Screen::feed(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (utf8_)
            text += c;
        else  // a cell also for those that are no character by themselves
            append_utf8(text, byte < 0x80 || byte >= 0xa0 ? byte : 0xfffdU);
    }
    // It lays each call's text out on its stack.
    constexpr std::size_t kPiece = 16384;
    for (std::size_t at = 0; at < text.size(); at += kPiece)
        vterm_input_write(term_, text.data() + at, std::min(kPiece, text.size() - at));
}

void Screen::resize(int rows, int cols) {
    vterm_set_size(term_, rows, cols);
    rows_ = rows;
    cols_ = cols;
}

std::string Screen::text(int row, int from, int to) const {
    std::string out;
    for (int col = from; col < to && col < cols_; ++col) {
        VTermScreenCell cell;
        const bool shown = vterm_screen_get_cell(screen_, {row, col}, &cell) && cell.chars[0] != 0;
        if (!shown) out += ' ';
        if (!shown || cell.chars[0] == ~0U) continue;  // the second column of a wide character
        for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i] != 0; i++)
            append_utf8(out, cell.chars[i]);
    }
    return out;
}

std::string Screen::row(int n) const { return trimmed(text(n, 0, cols_)); }

bool Screen::contains(std::string_view wanted) const {
    for (int n = 0; n < rows_; ++n)
        if (text(n, 0, cols_).find(wanted) != std::string::npos) return true;
    return all().find(wanted) != std::string::npos;
}

std::string Screen::all() const {
    std::string out;
    for (int n = 0; n < rows_; ++n) out += row(n) + '\n';
    out.erase(out.find_last_not_of('\n') + 1);
    return out + '\n';
}

Place Screen::cursor() const {
    VTermPos pos;
    vterm_state_get_cursorpos(vterm_obtain_state(term_), &pos);
    return {pos.row, pos.col};
}

}  // namespace harness
