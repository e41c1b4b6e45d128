// complete_list.cpp: the candidates above the line. They are shown as output is: the line steps
// aside and comes back below them, behind its prompt where that can be written again.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "edit.h"
#include "edit/chars.h"
#include "edit/complete_internal.h"
#include "edit/prompt.h"
#include "tty.h"

namespace complete {

static constexpr int kGap = 2;  // columns between two columns of candidates

// How they stand: `rows` of `columns`, one below the other, each `width` wide at most.
struct Layout {
    int shown;
    int rows;
    int columns;
    int width;
};

// The columns that `name` takes, at most `most`. With `written` it is written, as far as it fits.
static int name_columns(std::string_view name, int most, bool written) {
    genchar units[kMostBytes];
    const int n = units_from_bytes(units, kMostBytes, name.data(), static_cast<int>(name.size()));
    int column = 0;
    for (int at = 0; at < n;) {
        const int end = cluster_end(units, n, at);
        const Shown how = cluster_shown(units + at, end - at, column);
        if (how.columns > most - column) break;
        for (int to = column; at < end; at++) {
            genchar image[kSpelling] = {units[at]};
            const bool itself = !how.spelled || unit_printable(units[at]);
            const int len = itself ? 1 : unit_spelling(units[at], to, image);
            to += len;
            char bytes[kSpelling * kCharacterBytes];
            const int size = bytes_from_units(bytes, sizeof bytes, image, len);
            if (written) e_write(bytes, static_cast<std::size_t>(size));
        }
        column += how.columns;
    }
    return column;
}

static Layout lay_out(const std::string_view *names, int count) {
    const int screen = e_window(editb.e_fd);
    const int known_rows = Tty_original.tty_winsize.ws_row;
    const int most_rows = std::max((known_rows > 0 ? known_rows : 24) / 2, 1);
    Layout layout = {count, 0, 0, 0};
    for (;;) {
        layout.width = 1;
        for (int i = 0; i < layout.shown; i++)
            layout.width = std::max(layout.width, name_columns(names[i], screen, false));
        layout.columns = std::max((screen + kGap) / (layout.width + kGap), 1);
        if (layout.columns * most_rows >= layout.shown) break;
        layout.shown = layout.columns * most_rows;
    }
    layout.rows = (layout.shown + layout.columns - 1) / layout.columns;
    return layout;
}

static void write_text(const char *text) { e_write(text, std::strlen(text)); }

static void write_blanks(int n) {
    for (; n > 0; n--) e_write(" ", 1);
}

static void write_rows(const std::string_view *names, const Layout &layout) {
    for (int row = 0; row < layout.rows; row++) {
        for (int i = row; i < layout.shown; i += layout.rows) {
            const int used = name_columns(names[i], layout.width, true);
            if (i + layout.rows < layout.shown) write_blanks(layout.width + kGap - used);
        }
        write_text("\n");
    }
}

void show_candidates() {
    const std::string_view *names = nullptr;
    const int count = candidates_sorted(&names);
    const Layout layout = lay_out(names, count);
    e_view->step_off();
    e_above_begin();
    write_rows(names, layout);
    if (const int more = candidates_found() - layout.shown; more > 0) {
        char text[32];
        (void)snprintf(text, sizeof text, "... and %d more\n", more);
        write_text(text);
    }
    e_above_end();
    e_view->come_back();
    e_flush();
}

}  // namespace complete
