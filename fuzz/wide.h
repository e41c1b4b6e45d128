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
#include <utility>
#include <vector>

#include "edit.h"
#include "edit/chars.h"
#include "edit/row.h"
#include "edit/text.h"
#include "require.h"
#include "shown.h"

namespace fuzz {

// What a program writes for a byte that isn't printable ASCII. Of these kRight alone makes the
// prompt one that can't be written again.
constexpr std::string_view kRight = "\x1b[C";
// A colour that stays on from row to row belongs to no prompt.
constexpr std::string_view kNewRow = "\x1b[m\r\n";
constexpr std::string_view kProgramPieces[] = {
    // clang-format off
    "\xc3\xa9", "\xe4\xb8\x96", "e\xcc\x81", "\xe2\x9d\xa4\xef\xb8\x8f",
    "\xf0\x9f\x87\xa9\xf0\x9f\x87\xaa", "\xf0\x9f\x91\xa9\xe2\x80\x8d\xf0\x9f\x91\xa7",
    "\xf0\x9f\x8f\xbd", "\x1b[31m", "\x1b[1;44m", "\x1b[m", "\x1b]0;t\a", "\x1b[?25h", "\x1b(B",
    "\1", "\2", "\a", "\x1b[K", "\x1b[m\r\x1b[K", kRight,
    // clang-format on
};

class Terminal {
public:
    Terminal() = default;
    Terminal(int columns, bool joins)
        : columns_(columns), joins_(joins), cells_(static_cast<std::size_t>(columns)) {}

    // Of control characters and sequences only those that an editor may write are known, and of
    // the `program` those of kProgramPieces.
    void write(std::string_view bytes, bool program = false) {
        program_ = program;
        for (const char c : bytes) take(byte_of(c));
    }
    int column() const { return at_; }
    // The columns from `from` on, up to `to`; behind `coloured` without their colours.
    std::string row(int from, int to, int coloured) const {
        std::string text;
        for (int k = from; k < to; k++) {
            const Cell &cell = cells_[static_cast<std::size_t>(k)];
            if (k < coloured) text += cell.colour;
            text += cell.text.empty() ? " " : cell.text;
        }
        return text;
    }
    std::string row(int coloured = 0) const { return row(0, columns_, coloured); }

private:
    struct Cell {
        std::string text;    // empty: blank
        std::string colour;  // the sequences in force
    };

    void demand(bool holds, const char *breach, genchar u) const {
        if (holds) return;
        (void)std::fprintf(stderr, "%s: %x, column %d of %d\n[%s]\n", breach,
                           static_cast<unsigned>(u), at_, columns_, row().c_str());
        std::abort();
    }

    void take(int c) {
        if (!sequence_.empty()) {
            sequence_ += static_cast<char>(c);
            const bool text = sequence_[1] == ']';
            if (text ? c == kBell : sequence_.size() > 2 && c >= 0x40) end_sequence();
            return;
        }
        genchar units[kDecodedUnits];
        const int n = decode_byte(decoder_, c, units);
        for (int i = 0; i < n; i++) units[i] < 32 ? control(units[i]) : put(units[i]);
    }

    void control(genchar c) {
        const bool allowed = c == '\r' || c == '\n' || c == '\b' || c == kBell || c == kEscape;
        demand(allowed || program_, "written", c);
        if (c == '\n') erase(0);
        if (c == '\b') at_ = std::max(at_ - 1, 0);
        if (c == '\r' || c == '\n') at_ = 0;
        if (c == kEscape) sequence_ = "\x1b";
    }

    void end_sequence() {
        const std::string sequence = std::exchange(sequence_, "");
        const bool erases = sequence == "\x1b[K" || sequence == "\x1b[J";
        const bool colours = sequence.back() == 'm';
        require(erases || colours || program_);
        if (erases) erase(at_);
        if (colours) colour_ = sequence == "\x1b[m" ? "" : colour_ + sequence;
        if (sequence == kRight) at_++;
    }

    void erase(int from) { std::fill(cells_.begin() + from, cells_.end(), Cell()); }

    // One of the columns of a character of several: the others don't show any more.
    void clear(int at) {
        int first = at;
        while (first > 0 && cell(first).text == kRest) first--;
        do cell(first++) = {};
        while (first < columns_ && cell(first).text == kRest);
    }

    // The unit at the end of the character left of the cursor, which another one may join.
    genchar left() {
        const int base = left_cell();
        const std::string text = base < 0 ? "" : cell(base).text;
        genchar units[64] = {};
        const int n = units_from_bytes(units, 64, text.data(), static_cast<int>(text.size()));
        const bool pair = n == 2 && is_regional(units[0]) && is_regional(units[1]);
        return n == 0 || pair ? 0 : units[n - 1];
    }

    int left_cell() {
        int base = at_ - 1;
        while (base > 0 && cell(base).text == kRest) base--;
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
        cell(at_) = {u != ' ' ? spell(u) : "", colour_};
        for (int k = at_ + 1; k < at_ + width; k++) cell(k) = {kRest, colour_};
        at_ += width;
    }

    // What takes no column belongs to the character before.
    void join(genchar u, genchar before) {
        const int base = left_cell();
        if (base < 0) return;
        cell(base).text += spell(u);
        if (u != 0xfe0f || joins_ || wcwidth(static_cast<wchar_t>(before)) != 1) return;
        demand(at_ + 1 < columns_, "the row wraps behind", u);
        clear(at_);
        cell(at_++) = {kRest, cell(base).colour};
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

    Cell &cell(int at) { return cells_[static_cast<std::size_t>(at)]; }

    static constexpr const char *kRest = "\x7f";  // what is never shown
    int columns_ = 0;
    bool joins_ = false;
    std::vector<Cell> cells_;
    int at_ = 0;
    Decoder decoder_ = {};
    std::string sequence_;
    std::string colour_;
    bool program_ = false;  // writes
};

// What prompt and window are when they are printed afresh, up to the cursor, and from there on.
struct Printed {
    std::string prompt, before, behind;
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
    Printed printed = {prompt ? editb.e_prompt + 1 : "", "", ""};
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
    // On the terminal that takes most.
    int column() const { return each_[0].column(); }

    // The program writes what `text` stands for, at first a `new_row`; no row wraps. Returns the
    // bytes.
    std::string program_writes(std::string_view text, bool new_row) {
        std::string piece;
        const auto write = [&](std::string_view bytes) {
            for (Terminal &terminal : each_) terminal.write(bytes, true);
            piece += bytes;
            prompt_ += bytes;
            if (bytes.find('\r') == std::string_view::npos) return;
            prompt_.clear();
            cut_ = false;
        };
        if (new_row) write(kNewRow);
        // An editor may have given the prompt up, in whose colour a row of its own is.
        if (column() == 0) write("\x1b[m");
        constexpr int kWidestPiece = 6;
        for (const char &c : text) {
            const auto byte = static_cast<std::size_t>(byte_of(c));
            if (c == '\n' || column() + kWidestPiece >= columns_)
                write(kNewRow);
            else
                write(is_printable(byte_of(c)) ? std::string_view(&c, 1)
                                               : kProgramPieces[byte % std::size(kProgramPieces)]);
        }
        return piece;
    }

    // The `prompt` that is taken up looks as the program has left it, one cut at its left as far as
    // it goes. Only one with a movement in it, or too many sequences, is not `again` written.
    void check_prompt(const char *prompt, int columns, bool again) {
        constexpr std::size_t kManySequences = 700;
        const bool plain = prompt_.find(kRight) == std::string::npos && !prompt_.empty();
        require(again || !plain || prompt_.size() > kManySequences);
        for (std::size_t i = 0; i < 2 && again && !cut_; i++) {
            Terminal wanted(columns_, i == 1);
            wanted.write(prompt + 1);
            const int n = wanted.column();
            const int from = each_[i].column() - n;
            const int cut = n > 0 && wanted.row(0, 1, 0) == "<" ? 1 : 0;
            require(n <= columns && (cut != 0 ? from >= 0 : from == 0));
            require(from == 0 || columns <= (columns_ - 3) / 2);
            if (wanted.row(cut, n, n) != each_[i].row(from + cut, from + n, from + n))
                fail_row(each_[i].row(n), from + n, wanted.row(n), n);
        }
        cut_ = cut_ || (again && each_[0].column() > columns);
    }

    // The row is as it would be afresh.
    void check() const {
        if (Row.lead_len > 0) check_search();
        const Printed printed = wide_expected();
        for (const bool joins : {false, true}) {
            // What is typed next to what it may join is written apart from it.
            if (joins && cut_within_cluster()) continue;
            const Terminal &shown = each_[joins ? 1 : 0];
            Terminal wanted(columns_, joins);
            wanted.write(printed.prompt);
            const int n = wanted.column();
            wanted.write(printed.before);
            const int cursor = wanted.column();
            wanted.write(printed.behind);
            if (shown.column() == cursor && shown.row(n) == wanted.row(n)) continue;
            fail_row(shown.row(n), shown.column(), wanted.row(n), cursor);
        }
    }

private:
    int columns_ = 0;
    std::array<Terminal, 2> each_;
    std::string prompt_;  // what the program has written since the last line end
    bool cut_ = false;    // which is shown without its start
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
