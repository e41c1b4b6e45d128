// editor_run.h: drives an editor in this process: the input's bytes make the user's settings, the
// history, the prompt, bursts of keys and what happens between them; a screen of one row takes what
// the editor writes. It stands in for src/wait.cpp and src/pass, of which only row.cpp is linked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "edit.h"

namespace fuzz {

// A breach of what the target demands.
inline void require(bool holds) {
    if (!holds) std::abort();
}

// The characters that show `text` from column `at` on, at most 258 columns and the rest of the last
// character. Stores in `column` the first and in `behind` the column after the character at index
// `cursor`; -1 where the image has none.
std::string image_of(std::string_view text, int at, int cursor, int &column, int &behind);

// What the row has to show from screen column `from` on, and the cursor's column, -1 where it can
// be anywhere.
struct Expected {
    std::string cells;
    int from;
    int column;
};

// An editor under test. Its window begins at screen column `base`.
struct Editor {
    int style;
    void (*reset)();
    // Where the window begins, -1 when that depends on what the program has written.
    int (*base)();
    // The cursor's column in the window.
    int (*cursor_column)();
    // The line as it stands; `sent`: without the newline that ends it.
    std::string_view (*line)(bool sent);
    Expected (*expected)(int base, bool sent);
    // False while the row lags behind the line, as after a command that draws nothing.
    bool (*up_to_date)();
};

// Runs the lines that `data` describes.
void run_editor(const Editor &editor, const std::uint8_t *data, std::size_t size);

}  // namespace fuzz
