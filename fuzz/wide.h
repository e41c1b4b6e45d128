// wide.h: extended mode. What was typed, as text. The row, on two terminals that differ about
// widths: one gives each unit all that it may take, one shows what joins as one character. Whatever
// is written, neither wraps, and both show what they would if prompt and window were printed
// afresh.
#pragma once

#include <wchar.h>
#include <array>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "edit.h"
#include "edit/chars.h"
#include "edit/row.h"
#include "edit/text.h"
#include "require.h"
#include "shown.h"

namespace fuzz {

class Terminal {
public:
    Terminal() = default;
    Terminal(int columns, bool joins)
        : columns_(columns), joins_(joins), cells_(static_cast<std::size_t>(columns)) {}

    // Of control characters and sequences only those that an editor may write are known.
    void write(std::string_view bytes) {
        for (const char c : bytes) take(byte_of(c));
    }
    int column() const { return at_; }
    std::string row() const {
        std::string text;
        for (const std::string &cell : cells_) text += cell.empty() ? " " : cell;
        return text;
    }

private:
    void demand(bool holds, const char *breach, genchar u) const {
        if (holds) return;
        (void)std::fprintf(stderr, "%s: %x, column %d of %d\n[%s]\n", breach,
                           static_cast<unsigned>(u), at_, columns_, row().c_str());
        std::abort();
    }

    void take(int c) {
        if (!sequence_.empty()) {
            sequence_ += static_cast<char>(c);
            if (sequence_.size() > 2 && c >= 0x40) end_sequence();
            return;
        }
        genchar units[kDecodedUnits];
        const int n = decode_byte(decoder_, c, units);
        for (int i = 0; i < n; i++) units[i] < 32 ? control(units[i]) : put(units[i]);
    }

    void control(genchar c) {
        const bool allowed = c == '\r' || c == '\n' || c == '\b' || c == kBell || c == kEscape;
        demand(allowed, "written", c);
        if (c == '\n') erase(0);
        if (c == '\b') at_ = std::max(at_ - 1, 0);
        if (c == '\r' || c == '\n') at_ = 0;
        if (c == kEscape) sequence_ = "\x1b";
    }

    void end_sequence() {
        const char final = sequence_.back();
        require(sequence_ == "\x1b[K" || sequence_ == "\x1b[J" || final == 'm');
        if (final != 'm') erase(at_);
        sequence_.clear();
    }

    void erase(int from) { std::fill(cells_.begin() + from, cells_.end(), ""); }

    // One of the columns of a character of several: the others don't show any more.
    void clear(int at) {
        int first = at;
        while (first > 0 && cell(first) == kRest) first--;
        do cell(first++).clear();
        while (first < columns_ && cell(first) == kRest);
    }

    // The unit at the end of the character left of the cursor, which another one may join.
    genchar left() {
        const int base = left_cell();
        const std::string text = base < 0 ? "" : cell(base);
        genchar units[64] = {};
        const int n = units_from_bytes(units, 64, text.data(), static_cast<int>(text.size()));
        const bool pair = n == 2 && is_regional(units[0]) && is_regional(units[1]);
        return n == 0 || pair ? 0 : units[n - 1];
    }

    int left_cell() {
        int base = at_ - 1;
        while (base > 0 && cell(base) == kRest) base--;
        return base;
    }

    void put(genchar u) {
        demand(u != 127 && (u < 128 || u >= 160) && !is_bad_byte(u), "written", u);
        const genchar before = left();
        const bool pair = is_regional(u) && is_regional(before);
        const bool tone = u >= 0x1f3fb && u <= 0x1f3ff && before > 0x2000;
        const bool joined = pair || tone || (before == 0x200d && u > 0x2000);
        const int width = joins_ && joined ? 0 : width_of(u);
        if (width == 0) {
            join(u, before);
            return;
        }
        demand(at_ + width < columns_, "the row wraps behind", u);  // the last column stays free
        for (int k = at_; k < at_ + width; k++) clear(k);
        if (u != ' ') cell(at_) = spell(u);
        for (int k = at_ + 1; k < at_ + width; k++) cell(k) = kRest;
        at_ += width;
    }

    // What takes no column belongs to the character before.
    void join(genchar u, genchar before) {
        const int base = left_cell();
        if (base < 0) return;
        cell(base) += spell(u);
        if (u != 0xfe0f || joins_ || wcwidth(static_cast<wchar_t>(before)) != 1) return;
        demand(at_ + 1 < columns_, "the row wraps behind", u);
        clear(at_);
        cell(at_++) = kRest;
    }

    static bool is_regional(genchar u) { return u >= 0x1f1e6 && u <= 0x1f1ff; }

    int width_of(genchar u) const {
        if (is_regional(u)) return 2;
        const int width = wcwidth(static_cast<wchar_t>(u));
        if (width >= 0) return width;
        return u >= 0x1f000 && !joins_ ? 2 : 1;
    }

    static std::string spell(genchar u) {
        char bytes[kCharacterBytes];
        return {bytes, static_cast<std::size_t>(bytes_from_units(bytes, sizeof bytes, &u, 1))};
    }

    std::string &cell(int at) { return cells_[static_cast<std::size_t>(at)]; }

    static constexpr const char *kRest = "\x7f";  // what is never shown
    int columns_ = 0;
    bool joins_ = false;
    std::vector<std::string> cells_;  // empty: blank
    int at_ = 0;
    Decoder decoder_ = {};
    std::string sequence_;
};

// What prompt and window are when they are printed afresh, up to the cursor, and from there on.
struct Printed {
    std::string before, behind;
};

// One cluster, or one column of what is spelled.
struct Piece {
    std::string bytes;
    int columns;
};

inline std::vector<Piece> pieces_of(const genchar *units, int n, int column) {
    const auto spell = [](const genchar *text, int len) {
        char bytes[kCharacterBytes * (kMostJoined + 1)];
        return std::string(
            bytes, static_cast<std::size_t>(bytes_from_units(bytes, sizeof bytes, text, len)));
    };
    const Shown shown = cluster_shown(units, n, column);
    const bool open = n > 1 && units[n - 1] == kJoiner;  // not written before something follows
    if (!shown.spelled) return {{spell(units, n - (open ? 1 : 0)), shown.columns}};
    std::vector<Piece> pieces;
    for (int i = 0; i < n; i++) {
        if (unit_printable(units[i])) {
            pieces.push_back({spell(units + i, 1), cluster_shown(units + i, 1, column).columns});
            column += pieces.back().columns;
            continue;
        }
        genchar spelling[kSpelling];
        const int len = unit_spelling(units[i], column, spelling);
        for (int k = 0; k < len; k++) pieces.push_back({spell(spelling + k, 1), 1});
        column += len;
    }
    return pieces;
}

// The line as it is to be shown, and the column of its image on which the cursor stands.
struct WideImage {
    std::vector<Piece> pieces;
    int cursor;
};

inline WideImage wide_image() {
    const genchar *const text = editb.e_inbuf;
    const int len = text_len() - (in_vi() && vi::end_blank ? 1 : 0);
    const bool input = vi::view_mode == vi::MODE_INPUT;
    WideImage image = {{}, -1};
    int column = Row.lead_len > 0 ? 0 : Row.start;
    for (int at = 0, end = 0; at < Row.lead_len; at = end) {
        end = cluster_end(Row.lead, Row.lead_len, at);
        for (const Piece &piece : pieces_of(Row.lead + at, end - at, column)) {
            image.pieces.push_back(piece);
            column += piece.columns;
        }
    }
    require(column == Row.start);
    for (int at = 0; at < len;) {
        const int end = cluster_end(text, at < Row.cut && Row.cut < len ? Row.cut : len, at);
        if (!in_vi() && at == editb.e_cur) image.cursor = column;
        for (const Piece &piece : pieces_of(text + at, end - at, column)) {
            image.pieces.push_back(piece);
            column += piece.columns;
        }
        const bool on_it = at <= editb.e_cur && editb.e_cur < end;
        if (in_vi() && on_it) image.cursor = input ? column : column - 1;
        at = end;
    }
    if (image.cursor < 0) image.cursor = in_vi() && editb.e_cur < 0 ? 0 : column;
    return image;
}

// What stands in place of the prompt while a search is typed, and the cursor: at the last
// occurrence of the text, whose lower-case letters stand for both cases; at the end without a
// match.
inline void check_search() {
    using namespace std::string_view_literals;
    const std::u32string_view lead(Row.lead, static_cast<std::size_t>(Row.lead_len));
    const std::u32string_view line(editb.e_inbuf, static_cast<std::size_t>(text_len()));
    const std::size_t from = lead.find('\'') + 1;
    const std::u32string_view kind = lead.substr(0, from);
    require(kind == U"(back)'"sv || kind == U"(on)'"sv || kind == U"(none)'"sv);
    require(lead.size() >= from + 3 && lead.ends_with(U"': "sv));
    const std::u32string_view text = lead.substr(from, lead.size() - from - 3);
    const auto stands_for = [](genchar in_line, genchar typed) {
        return in_line == typed || unit_to_lower(in_line) == typed;
    };
    int at = text_len();
    if (kind != U"(none)'"sv && !text.empty()) {
        const auto found =
            std::find_end(line.begin(), line.end(), text.begin(), text.end(), stands_for);
        require(found != line.end());
        at = cluster_start(editb.e_inbuf, text_len(), static_cast<int>(found - line.begin()));
    }
    require(editb.e_cur == at);
}

// Whether typing goes on within what would be one cluster.
inline bool cut_within_cluster() {
    const int cut = Row.cut;
    return cut > 0 && cut < text_len() && cluster_start(editb.e_inbuf, text_len(), cut) < cut;
}

inline Printed wide_expected() {
    const WideImage image = wide_image();
    const int first = window_first();
    const int width = editb.e_wsize;
    require(image.cursor >= first && image.cursor < first + width + (in_vi() ? 1 : 0));
    const bool lead = Row.lead_len > 0;
    const bool prompt = !lead && (in_vi() || first < editb.e_plen || first == 0);
    Printed printed = {prompt ? editb.e_prompt + 1 : "", ""};
    int column = lead ? 0 : Row.start;
    const auto print = [&](const Piece &piece) {
        const int from = std::max(column, first);
        const int to = std::min(column + piece.columns, first + width);
        column += piece.columns;
        if (from >= to) return;
        std::string &text = column <= image.cursor ? printed.before : printed.behind;
        text += to - from < piece.columns ? std::string(static_cast<std::size_t>(to - from), ' ')
                                          : piece.bytes;
    };
    for (const Piece &piece : image.pieces) print(piece);
    const bool more = column > first + width;
    const bool left = in_vi() ? first > 0 && column > width : first > (lead ? 0 : editb.e_plen);
    while (column < first + width) print({" ", 1});
    printed.behind += more ? (left ? '*' : '>') : (left ? '<' : ' ');
    return printed;
}

// Both terminals.
class Screens {
public:
    Screens() = default;
    explicit Screens(int columns)
        : columns_(columns), each_{Terminal(columns, false), Terminal(columns, true)} {}
    void write(std::string_view bytes) {
        for (Terminal &terminal : each_) terminal.write(bytes);
    }
    int column() const { return each_[0].column(); }

    // The row is as it would be afresh.
    void check() const {
        if (Row.lead_len > 0) check_search();
        const Printed printed = wide_expected();
        for (const bool joins : {false, true}) {
            // What is typed next to what it may join is written apart from it.
            if (joins && cut_within_cluster()) continue;
            const Terminal &shown = each_[joins ? 1 : 0];
            Terminal wanted(columns_, joins);
            wanted.write(printed.before);
            const int cursor = wanted.column();
            wanted.write(printed.behind);
            if (shown.column() == cursor && shown.row() == wanted.row()) continue;
            fail_row(shown.row(), shown.column(), wanted.row(), cursor);
        }
    }

private:
    int columns_ = 0;
    std::array<Terminal, 2> each_;
};

// Where the `typed` keys are text and nothing else, of a paste all of it: the text.
inline std::optional<std::string> text_of(std::string_view typed) {
    std::string text;
    bool pasted = false;
    while (!typed.empty()) {
        const std::string_view mark = pasted ? "\x1b[201~" : "\x1b[200~";
        const int c = byte_of(typed[0]);
        const bool at_mark = typed.starts_with(mark);
        const bool own = c == editb.e_erase || c == editb.e_kill || c == editb.e_eof;
        const bool command = own || c < 32 || c == 127 || c == '\\';
        const bool sequence = typed.starts_with("\xc2\x8f") || typed.starts_with("\xc2\x9b");
        if (!at_mark && (c == 0 || c == kEscape)) return {};
        if (!at_mark && !pasted && (command || sequence)) return {};
        if (!at_mark) text += typed[0];
        pasted ^= at_mark;
        typed.remove_prefix(at_mark ? mark.size() : 1);
    }
    if (pasted) return {};
    return text;
}

}  // namespace fuzz
