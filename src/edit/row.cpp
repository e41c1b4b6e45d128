// row.cpp: see row.h.
#include "edit/row.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "edit.h"
#include "edit/chars.h"
#include "edit/edit_internal.h"
#include "edit/image.h"
#include "edit/prompt.h"
#include "edit/rich_prompt.h"
#include "edit/text.h"
#include "extended.h"

// Units of clusters behind their first ones, as many as there can be in a line and its prompt.
static constexpr int kPool = 2 * kLineUnits;

struct Window {
    int used;  // columns in use
    int pooled;
    Cell cell[kWidestWindow + 1];
    genchar pool[kPool];  // last: few lines need it, and its memory
};

// State: the window as the screen shows it, and as it shall be.
static Window Windows[2];
static Window *Shown_window = &Windows[0];
static Window *Wanted = &Windows[1];
RowState Row;
// State: what stands right of the marker may have been erased.
static bool Tail_erased = false;
// State: the colour in which the terminal writes, as in Cell. It is none whenever the row is left:
// row_take and row_leave change from and to the program's.
static int Pen = 0;

static constexpr Cell kBlank = {' ', 0, 0, 1, 0, true};

// ---- The image.

int row_column(int index) { return image_place(index).column; }

int row_columns(int enough) {
    const Place end = image_place_at(enough);
    const bool more = end.index < text_len() && end.column < image_end();
    return more ? image_behind(end).column : end.column;
}

// ---- Cells.

static bool same(const Window &a, const Window &b, int column) {
    const Cell &x = a.cell[column];
    const Cell &y = b.cell[column];
    return x.unit == y.unit && x.count == y.count && x.columns == y.columns &&
           x.colour == y.colour &&
           std::equal(a.pool + x.rest, a.pool + x.rest + x.count, b.pool + y.rest);
}

static void blank(Window &window, int from, int to) {
    std::fill(window.cell + from, window.cell + std::max(from, to), kBlank);
}

// One cell for the `n` units, `columns` wide from column `at` on, as far as that is in the window.
// What the window's edge cuts is blank.
static void put_cell(Window &window, const genchar *units, int n, int columns, int at, bool safe,
                     int colour = 0) {
    const int from = std::max(at, 0);
    const int to = std::min(at + columns, Row.width);
    if (from >= to) return;
    blank(window, from, to);
    window.used = to;
    if (to - from < columns || window.pooled + n > kPool) return;
    Cell &cell = window.cell[at];
    cell = {units[0],
            static_cast<std::uint16_t>(window.pooled),
            static_cast<std::uint8_t>(n - 1),
            static_cast<std::uint8_t>(columns),
            static_cast<std::uint8_t>(colour),
            safe};
    std::copy(units + 1, units + n, window.pool + window.pooled);
    window.pooled += n - 1;
    for (int k = at + 1; k < to; k++) window.cell[k] = {0, 0, 0, 0, cell.colour, safe};
}

// The cluster of `n` units whose image begins in column `column`; the window in column `first`. One
// that doesn't show as a whole is shown unit by unit.
static void put_cluster(Window &window, const genchar *units, int n, int column, int first) {
    const Shown whole = cluster_shown(units, n, column);
    if (!whole.spelled) {
        put_cell(window, units, n, whole.columns, column - first, whole.safe);
        return;
    }
    for (int i = 0; i < n; i++) {
        const Shown shown = cluster_shown(units + i, 1, column);
        genchar spelling[kSpelling];
        const int len = shown.spelled ? unit_spelling(units[i], column, spelling) : 0;
        for (int k = 0; k < len; k++)
            put_cell(window, spelling + k, 1, 1, column + k - first, true);
        if (!shown.spelled)
            put_cell(window, units + i, 1, shown.columns, column - first, shown.safe);
        column += shown.columns;
    }
}

// Bytes that the program has written, a column for each unit that isn't to be printed. Returns the
// column behind them.
static int put_bytes(Window &window, const char *bytes, int len, int at, int colour = 0) {
    static genchar units[kPool];
    const int n = units_from_bytes(units, kPool, bytes, len);
    for (int i = 0; i < n && at < Row.width;) {
        const int end = cluster_end(units, n, i);
        const Shown shown = cluster_shown(units + i, end - i, at);
        const int columns = shown.spelled ? 1 : shown.columns;
        put_cell(window, units + i, end - i, columns, at, shown.safe, colour);
        at += columns;
        i = end;
    }
    return at;
}

// What the program has left on its row, as out_row_rest gives it.
static void put_rest(Window &window, const genchar *rest, int len, int at) {
    for (int k = 0, next = 0; k < len; k = next) {
        for (next = k + 1; next < len && rest[next] == 0;) next++;
        const Shown shown = cluster_shown(rest + k, 1, at + k);
        put_cell(window, rest + k, 1, next - k, at + k, shown.safe);
    }
}

// The text of the prompt, its colours counted.
static void put_coloured(Window &window, const char *text, int at) {
    int colours = 0;
    int colour = 0;
    while (*text != '\0') {
        const int len = static_cast<int>(std::strcspn(text, "\033"));
        at = put_bytes(window, text, len, at, colour);
        text += len;
        if (*text == '\0') return;
        colours++;
        colour = colour_none(text) ? 0 : colours;
        text = colour_end(text);
    }
}

static void put_prompt(Window &window, int columns, int first) {
    if (first >= columns) return;
    const char *const text = editb.e_prompt + 1;
    const std::size_t len = std::char_traits<char>::length(text);
    if (Rich_rows)
        put_coloured(window, text, -first);
    else
        (void)put_bytes(window, text, static_cast<int>(len), -first);
    blank(window, std::min(columns - first, Row.width), window.used);
    window.used = std::min(columns - first, Row.width);
}

// The clusters of a text of its own whose image begins in column 0. Returns its columns.
static int put_lead(Window *window, int first) {
    int column = 0;
    for (int at = 0, end = 0; at < Row.lead_len; at = end) {
        end = cluster_end(Row.lead, Row.lead_len, at);
        if (window != nullptr) put_cluster(*window, Row.lead + at, end - at, column, first);
        column += cluster_shown(Row.lead + at, end - at, column).columns;
    }
    return column;
}

int row_lead_columns() { return put_lead(nullptr, 0); }

static void begin(Window &window) {
    blank(window, 0, Row.width + 1);
    window.used = window.pooled = 0;
}

void row_want_line(int first) {
    const genchar *const text = editb.e_inbuf;
    const int len = text_len();
    begin(*Wanted);
    if (Row.lead_len > 0)
        (void)put_lead(Wanted, first);
    else
        put_prompt(*Wanted, Row.start, first);
    Place at = image_place_at(first);
    while (at.index < len && at.column < std::min(first + Row.width, image_end())) {
        const Place next = image_behind(at);
        if (next.column > first)
            put_cluster(*Wanted, text + at.index, next.index - at.index, at.column, first);
        at = next;
    }
}

void row_want_output(int prompt_columns, const genchar *rest, int len) {
    begin(*Wanted);
    put_prompt(*Wanted, prompt_columns, 0);
    put_rest(*Wanted, rest, len, prompt_columns);
}

int row_wanted() { return Wanted->used; }

// ---- What is shown without being written here.

void row_set_width(int columns) {
    if (columns > Row.width) blank(*Shown_window, Row.width + 1, columns + 1);
    Row.width = columns;
}

void row_clear() {
    begin(*Shown_window);
    Row.at = Row.used = 0;
    Row.stale = false;
}

void row_show_prompt() {
    put_prompt(*Shown_window, editb.e_plen, 0);
    Row.at = editb.e_plen;
    row_take();
}

int row_show_rest(int from, const genchar *rest, int len) {
    const int room = Row.width - from;
    const int shown = std::clamp(len, 0, room);
    put_rest(*Shown_window, rest, shown, from);
    Row.used = from + shown;
    Row.stale = false;
    return len > room ? static_cast<int>(rest[room]) : 0;
}

void row_show_echo(int n) {
    row_clear();
    Row.at = n;
    Row.used = std::min(n, Row.width);
    for (int k = 0; k < Row.used; k++) put_cell(*Shown_window, editb.e_inbuf + k, 1, 1, k, true);
}

// ---- The screen.

static void write_unit(genchar u) {
    char bytes[kCharacterBytes];
    const int n = bytes_from_units(bytes, sizeof bytes, &u, 1);
    if (n == 1)
        e_putchar(static_cast<unsigned char>(bytes[0]));
    else
        e_write(bytes, static_cast<std::size_t>(n));
}

// The prompt's colour sequence `n`, from 1 on.
static const char *colour_sequence(int n) {
    const char *sequence = std::strchr(editb.e_prompt, kEscape);
    for (; n > 1; n--) sequence = std::strchr(sequence + 1, kEscape);
    return sequence;
}

static void set_pen(int colour) {
    if (colour == Pen) return;
    const int before = colour < Pen ? 0 : Pen;
    int first = before + 1;
    for (int i = first; i < colour; i++)
        if (colour_none(colour_sequence(i))) first = i + 1;
    // One that takes all back may stand right in front of the next.
    if (Pen > 0 && (before == 0 || first > Pen + 1)) e_write("\033[m", 3);
    for (int i = first; i <= colour; i++) {
        const char *const sequence = colour_sequence(i);
        e_write(sequence, static_cast<std::size_t>(colour_end(sequence) - sequence));
    }
    Pen = colour;
}

static void write_cell(const Window &window, int column) {
    const Cell &cell = window.cell[column];
    set_pen(cell.colour);
    write_unit(cell.unit);
    // A joiner that nothing follows yet stays back: some terminals would join what is written next,
    // wherever the cursor has gone by then.
    const genchar *const rest = window.pool + cell.rest;
    const int most =
        cell.count > 0 && rest[cell.count - 1] == kJoiner ? cell.count - 1 : cell.count;
    for (int i = 0; i < most; i++) write_unit(rest[i]);
    Row.at = column + std::max<int>(cell.columns, 1);
}

static bool unsafe(const Window &window, int from, int to) {
    return std::any_of(window.cell + from, window.cell + std::clamp(to, from, Row.width),
                       [](const Cell &cell) { return !cell.safe; });
}

// To the first column, by backspaces where these can be trusted.
static void row_back() {
    if (Row.home.known && unsafe(*Shown_window, 0, Row.at))
        e_write(Row.home.bytes, std::char_traits<char>::length(Row.home.bytes));
    else
        for (; Row.at > 0; Row.at--) e_putchar('\b');
    Row.at = 0;
}

void row_take_off(const genchar *rest, int len, int used) {
    const bool doubtful = std::any_of(
        rest, rest + len, [](genchar u) { return u != 0 && !cluster_shown(&u, 1, 0).safe; });
    const bool far = (doubtful || unsafe(*Shown_window, 0, Row.width)) && Row.home.known;
    // Behind the marker nothing was covered, but what erases takes that too.
    if (!far) len = std::min(len, Row.width + 1);
    used = std::max({used, Row.at, len});
    row_back();
    for (int i = 0; i < used; i++)
        if (i >= len || rest[i] != 0) write_unit(i < len ? rest[i] : ' ');
    Row.at = used;
    if (far) {
        if (Dumb_terminal == 0) e_write("\033[K", 3);
        e_write(Row.home.bytes, std::char_traits<char>::length(Row.home.bytes));
        Row.at = 0;
    }
    for (; Row.at > 0; Row.at--) e_putchar('\b');
    row_leave();
    row_clear();
}

// Whether the way from the start of the row is short enough.
static bool nearer_from_home(int column) {
    const int there = 2 * (column + Row.home.columns);
    const int here = Row.at + Row.home.columns;
    return there < here || (Row.home.half && there == here);
}

static void move_to(int column) {
    while (column > 0 && column < Row.width && Shown_window->cell[column].columns == 0) column--;
    if (column < Row.at) {
        const bool go_home = nearer_from_home(column) || unsafe(*Shown_window, column, Row.at);
        if (Row.home.known && go_home) {
            e_write(Row.home.bytes, std::char_traits<char>::length(Row.home.bytes));
            Row.at = 0;
        } else {
            for (; Row.at > column; Row.at--) e_putchar('\b');
        }
    }
    while (Row.at < column) write_cell(*Shown_window, Row.at);
}

void row_move(int column) {
    move_to(column);
    set_pen(0);
}

void row_step() { write_cell(*Shown_window, Row.at); }

bool row_same(int column) { return same(*Shown_window, *Wanted, column); }

void row_update(int column) {
    move_to(column);
    write_cell(*Wanted, column);
    std::copy(Wanted->cell + column, Wanted->cell + Row.at, Shown_window->cell + column);
    // The other half of a character that was there shows no more.
    Cell *const behind = Shown_window->cell + Row.at;
    if (Row.at < Row.width && behind->columns == 0) *behind = kBlank;
    Row.used = std::max(Row.used, Row.at);
}

int row_first_difference() {
    if (Row.stale) return 0;
    int k = 0;
    while (k < Wanted->used && k < Row.used && row_same(k)) k++;
    return k;
}

bool row_unsafe_from(int column) {
    return unsafe(*Shown_window, column, Row.width) || unsafe(*Wanted, column, Row.width);
}

static void erase_behind(bool counted) {
    if (counted) {
        while (Row.at < Row.used) write_cell(*Wanted, Row.at);
    } else {
        set_pen(0);
        e_write("\033[K", 3);
        Row.marker = ' ';
        Tail_erased = true;
    }
}

void row_write_from(int column) {
    move_to(column);
    const bool counted = Dumb_terminal != 0 || !row_unsafe_from(column);
    while (Row.at < Wanted->used) write_cell(*Wanted, Row.at);
    erase_behind(counted);
    set_pen(0);
    std::swap(Shown_window, Wanted);
    Row.used = Shown_window->used;
    Row.stale = false;
}

void row_take() {
    if (e_prompt_leaves_colour()) e_write("\033[m", 3);
}

void row_leave() {
    if (!e_prompt_leaves_colour()) return;
    const std::string_view prompt = editb.e_prompt;
    const auto sequences = std::count(prompt.begin(), prompt.end(), '\033');
    if (sequences > 0) set_pen(static_cast<int>(sequences) - 1);  // else it was given up
    Pen = 0;
}

void row_overwrite(genchar u, int step) {
    write_unit(u);
    Shown_window->cell[Row.at] = {u, 0, 0, 1, 0, true};
    Row.used = std::max(Row.used, Row.at + 1);
    if (step != 0)
        Row.at++;
    else
        e_putchar('\b');
}

void row_write_tail(const genchar *tail, int len) {
    if (len <= 1 || !Tail_erased || !Row.home.known) return;
    row_move(Row.width);
    for (int i = 0; i < len; i++)
        if (i == 0 || tail[i] != 0) write_unit(tail[i] != 0 ? tail[i] : ' ');
    e_write(Row.home.bytes, std::char_traits<char>::length(Row.home.bytes));
    Row.at = 0;
}

void row_mark(int c) {
    if (c == Row.marker) return;
    const genchar unit = static_cast<genchar>(c);
    row_move(Row.width);
    write_unit(unit);
    Row.at += cluster_shown(&unit, 1, 0).columns;
    Row.marker = c;
}
