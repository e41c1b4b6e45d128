// picture: draws docs/morp.svg from the screen of a real session; script/picture runs it.
//
// The session is typed step by step. A note to a step stands right of the row in which it was
// typed, and what was typed is drawn in a colour of its own. The picture goes to standard output.
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "harness/session.h"

namespace {

constexpr int kRows = 12;
constexpr int kCols = 52;
// In pixels. A cell is as wide as the usual monospaced fonts are at this size; textLength holds
// others to it.
constexpr int kFont = 15;
constexpr int kCellWidth = 9;
constexpr int kCellHeight = 20;
constexpr int kBorder = 16;
constexpr int kNotesWidth = 330;

struct Step {
    std::string_view keys;
    std::string_view shown;  // the row up to the cursor, when the step is done
    std::string_view key;    // the note: the key in front of it, and its words; both may be empty
    std::string_view note;
};

// Where the user typed: from this column on, the text of this row is theirs.
struct Typed {
    int row, col;
    const Step *step;
};

constexpr Step kSteps[] = {
    {"Q_VXEDITOR=emacs morp -- python3 -I -q\r", ">>> ", "", "any program that reads lines"},
    {"prices = [3, 10, 47]\r", ">>> ", "", ""},
    {"sum(prices)\r", ">>> ", "", ""},
    {"\x10 / 3\r", ">>> ", "^P", "the line before, and more to it"},
    {"from getpass import getpass\r", ">>> ", "", ""},
    {"word = getpass()\r", "Password: ", "", ""},
    {"sesame\r", ">>> ", "", "no echo: passed on, and never recorded"},
    {"len(word)\r", ">>> ", "", ""},
    {"\x12pri", ">>> ^Rpri", "^R", "search what was typed, also days ago"},
};

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else
            out += c;
    }
    return out;
}

class Drawing {
public:
    void text(int row, int col, const std::string &text, const char *style) {
        const auto first = text.find_first_not_of(' ');
        if (first == std::string::npos) return;
        const std::string words = text.substr(first, text.find_last_not_of(' ') + 1 - first);
        out_ << "<text class=\"" << style << "\" x=\"" << x(col + static_cast<int>(first))
             << "\" y=\"" << base(row) << "\" textLength=\""
             << static_cast<int>(words.size()) * kCellWidth << "\">" << escaped(words)
             << "</text>\n";
    }
    void cursor(int row, int col) {
        out_ << "<rect class=\"cursor\" x=\"" << x(col) << "\" y=\"" << y(row) << "\" width=\""
             << kCellWidth << "\" height=\"" << kCellHeight << "\"/>\n";
    }
    void note(int row, const Step &step) {
        int left = x(kCols) + 2 * kBorder;
        if (!step.key.empty()) {
            const int width = static_cast<int>(step.key.size() + 1) * kCellWidth;
            out_ << "<rect class=\"cap\" x=\"" << left << "\" y=\"" << y(row) << "\" width=\""
                 << width << "\" height=\"" << kCellHeight - 1 << "\" rx=\"4\"/>\n"
                 << "<text class=\"key\" x=\"" << left + kCellWidth / 2 << "\" y=\"" << base(row)
                 << "\">" << step.key << "</text>\n";
            left += width + kCellWidth;
        }
        out_ << "<text class=\"note\" x=\"" << left << "\" y=\"" << base(row) << "\">"
             << escaped(step.note) << "</text>\n";
    }
    std::string finished() const {
        const int inner = x(kCols) + kBorder, height = y(kRows) + kBorder;
        std::ostringstream svg;
        svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << inner + kNotesWidth
            << "\" height=\"" << height << "\" viewBox=\"0 0 " << inner + kNotesWidth << ' '
            << height << "\">\n"
            << "<title>A session of python3 under morp</title>\n"
            << "<style>\n"
            << "text { font: " << kFont << "px 'DejaVu Sans Mono', monospace; fill: #c8ccd4; "
            << "white-space: pre }\n"
            << ".typed { fill: #8fd0ff }\n"
            << ".key { fill: #20242c }\n"
            << ".cap { fill: #d8dce4; stroke: #8a909c }\n"
            << ".note { font: 14px 'DejaVu Sans', sans-serif; fill: #777f8c }\n"
            << ".cursor { fill: #e8b75a }\n"
            << "</style>\n"
            << "<rect width=\"" << inner << "\" height=\"" << height
            << "\" rx=\"8\" fill=\"#20242c\"/>\n"
            << out_.str() << "</svg>\n";
        return svg.str();
    }

private:
    static int x(int col) { return kBorder + col * kCellWidth; }
    static int y(int row) { return kBorder + row * kCellHeight; }
    static int base(int row) { return y(row) + kFont; }

    std::ostringstream out_;
};

std::string draw(Session &s, const std::vector<Typed> &typed) {
    Drawing drawing;
    const harness::Place at = s.cursor();
    drawing.cursor(at.row, at.col);
    for (int row = 0; row < kRows; ++row) {
        std::string text = s.row(row);
        for (const Typed &t : typed) {
            if (t.row != row) continue;
            const auto col = static_cast<std::size_t>(t.col);
            if (text.size() > col) {
                drawing.text(row, t.col, text.substr(col), "typed");
                text.resize(col);
            }
            if (!t.step->note.empty()) drawing.note(row, *t.step);
        }
        drawing.text(row, 0, text, "shown");
    }
    return drawing.finished();
}

std::string make_picture() {
    const std::string folder = std::filesystem::path(harness::morp()).parent_path();
    Session s(harness::Options{
        .style = "",  // what is typed is all that somebody needs who tries it
        .outer = {"/bin/sh", "-i"},
        .env = {{"PATH", folder + ":/usr/bin:/bin"}, {"COLUMNS", std::to_string(kCols)}},
        .rows = kRows,
        .cols = kCols,
    });
    std::vector<Typed> typed;
    s.wait_row(0, "$");
    for (const Step &step : kSteps) {
        const harness::Place at = s.cursor();
        typed.push_back({at.row, at.col, &step});
        const std::size_t mark = s.mark();
        s.type(step.keys);
        s.wait_for("the row \"" + std::string(step.shown) + "\"", [&] {
            const harness::Place now = s.cursor();
            return s.mark() > mark && now.col == static_cast<int>(step.shown.size()) &&
                   (now.row > at.row || now.col > at.col) &&
                   (s.row(now.row) + ' ').starts_with(step.shown);
        });
        s.wait_asleep();
    }
    return draw(s, typed);
}

}  // namespace

int main() {
    try {
        std::cout << make_picture();
    } catch (const std::exception &error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return std::cout.flush() ? 0 : 1;
}
