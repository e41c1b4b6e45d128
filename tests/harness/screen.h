// screen.h: what a terminal of xterm's kind shows after the bytes that it was fed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct VTerm;
struct VTermScreen;

namespace harness {

struct Place {
    int row, col;
    bool operator==(const Place &) const = default;
};

class Screen {
public:
    // `utf8`: it takes characters for what they are; else each byte takes a cell.
    Screen(int rows, int cols, bool utf8 = false);
    ~Screen();
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    void feed(std::string_view bytes);
    void resize(int rows, int cols);
    // Columns `from` to before `to` of a row, blank cells as blanks.
    std::string text(int row, int from, int to) const;
    // The whole row without trailing blanks.
    std::string row(int n) const;
    // Whether `wanted` stands in one row, or over several rows as in all().
    bool contains(std::string_view wanted) const;
    // All rows, each ended by a newline; empty rows at the end are left out.
    std::string all() const;
    Place cursor() const;

private:
    VTerm *term_;
    VTermScreen *screen_;
    int rows_;
    int cols_;
    bool utf8_;
};

}  // namespace harness
