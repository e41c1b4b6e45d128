// picture: draws the pictures of the README from the screens of real sessions; script/picture runs
// it:
//
// usage: picture FOLDER
//
// A session is typed step by step. A note to a step stands right of the row in which it was typed,
// and what was typed is drawn in a colour of its own. All that has to be set is typed too. The
// screen is one of UTF-8 and colours, made of all that morp wrote.
#include <vterm.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "harness/session.h"

namespace {

// In pixels. A cell is as wide as the usual monospaced fonts are at this size; textLength holds
// others to it.
constexpr int kFont = 15;
constexpr int kCellWidth = 9;
constexpr int kCellHeight = 20;
constexpr int kBorder = 16;
constexpr int kNotesWidth = 330;
constexpr int kCols = 52;

struct Step {
    std::string_view keys;
    std::string_view shown;  // the row up to the cursor, when the step is done
    std::string_view key;    // the note: the key in front of it, and its words; both may be empty
    std::string_view note;
    int from = -1;  // column from which its row is the user's, when not the cursor's
};

struct Picture {
    std::string_view file;
    std::string_view title;
    int rows;
    std::span<const Step> steps;
};

// Where the user typed.
struct Typed {
    int row, col;
    const Step *step;
};

// In place of keys: `sleep` ends, when it is wanted and not by the clock.
constexpr std::string_view kWake = "wake";

constexpr Step kMorpSteps[] = {
    {"export Q_VXEDITOR=emacs Q_VXEXTENDED=1\r", "$ ", "", "once, in the profile of the shell"},
    {"morp -- python3 -I -q\r", ">>> ", "", "any program that reads lines"},
    {"import sys; sys.ps1 = '\\33[32m茶\\33[m> '\r", "茶> ", "", ""},
    {"prices = {'緑茶 🍵': 380, 'pão': 290}\r", "茶> ", "", "any character, a prompt in colours"},
    {"sum(pri", "茶> sum(pri", "", ""},
    {"\t", "茶> sum(prices", "TAB", "a word that was typed or printed"},
    {".values())\r", "茶> ", "", ""},
    {"\x1b[A / 2\r", "茶> ", "Up", "the line before, and more to it"},
    {"import getpass; word = getpass.getpass()\r", "Password: ", "", ""},
    {"sesame\r", "茶> ", "", "no echo: passed on, and never recorded"},
    {"\x12pri", "(back)'pri': sum(", "^R", "search what was typed, also days ago", 13},
};

constexpr Step kOutputSteps[] = {
    {"Q_VXEDITOR=emacs morp dash\r", "$ ", "", ""},
    {"say() { printf '\\r%s\\n$ ' \"$*\"; }\r", "$ ", "", ""},
    {"(sleep 9; say The tea is ready.) &\r", "$ ", "", "a job in the background"},
    {"git commit -m 'Mend the par", "$ git commit -m 'Mend the par", "", ""},
    {kWake, "$ git commit -m 'Mend the par", "", "it prints while you type", kCols},
    {"ser", "$ git commit -m 'Mend the parser", "", "the line steps aside, and goes on", 2},
};

constexpr Picture kPictures[] = {
    {"morp.svg", "A session of python3 under morp", 11, kMorpSteps},
    {"output.svg", "A background job prints above the line that is being typed", 5, kOutputSteps},
};

// What a terminal of UTF-8 and colours shows.
class Canvas {
public:
    explicit Canvas(int rows) : term_(vterm_new(rows, kCols)), screen_(vterm_obtain_screen(term_)) {
        vterm_set_utf8(term_, 1);
        vterm_screen_reset(screen_, 1);
    }
    ~Canvas() { vterm_free(term_); }
    Canvas(const Canvas &) = delete;
    Canvas &operator=(const Canvas &) = delete;

    // Takes what has come since the last call: `log` is all of it.
    void follow(const std::string &log) {
        vterm_input_write(term_, log.data() + taken_, log.size() - taken_);
        taken_ = log.size();
    }
    harness::Place cursor() const {
        VTermPos pos;
        vterm_state_get_cursorpos(vterm_obtain_state(term_), &pos);
        return {pos.row, pos.col};
    }
    // The columns of the cell, 0 for the right half of one.
    int cell(int row, int col, VTermScreenCell &cell) const {
        if (!vterm_screen_get_cell(screen_, {row, col}, &cell)) return 1;
        return cell.chars[0] == UINT32_MAX ? 0 : cell.width;
    }
    std::string colour(VTermColor colour) const {
        char hex[8];
        vterm_screen_convert_color_to_rgb(screen_, &colour);
        (void)std::snprintf(hex, sizeof hex, "#%02x%02x%02x", unsigned{colour.rgb.red},
                            unsigned{colour.rgb.green}, unsigned{colour.rgb.blue});
        return hex;
    }
    // The row of the cursor up to there.
    std::string typed_so_far() const;

private:
    VTerm *term_;
    VTermScreen *screen_;
    std::size_t taken_ = 0;
};

std::string text_of(const VTermScreenCell &cell) {
    std::string out;
    const auto put = [&](std::uint32_t byte) { out.push_back(static_cast<char>(byte)); };
    for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i] != 0; ++i) {
        const std::uint32_t c = cell.chars[i];
        if (c >= 0x10000) put(0xf0 | c >> 18);
        if (c >= 0x800) put(c < 0x10000 ? 0xe0 | c >> 12 : 0x80 | (c >> 12 & 0x3f));
        if (c >= 0x80) put(c < 0x800 ? 0xc0 | c >> 6 : 0x80 | (c >> 6 & 0x3f));
        put(c < 0x80 ? c : 0x80 | (c & 0x3f));
    }
    return out.empty() ? " " : out;
}

std::string Canvas::typed_so_far() const {
    const harness::Place at = cursor();
    std::string out;
    VTermScreenCell here;
    for (int col = 0; col < at.col; ++col)
        if (cell(at.row, col, here) > 0) out += text_of(here);
    return out;
}

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
    Drawing(const Picture &picture, const Canvas &canvas) : picture_(picture), canvas_(canvas) {}

    // A row, of which the user has typed what begins at column `typed`.
    void row(int row, int typed) {
        for (int col = 0; col < kCols;) {
            VTermScreenCell cell;
            const int first = col;
            const std::string style = look(row, col, typed, cell);
            std::string text;
            do {
                text += escaped(text_of(cell));
                col += cell.width;
            } while (cell.width == 1 && col < kCols && col != typed &&
                     look(row, col, typed, cell) == style && cell.width == 1);
            put_text(row, first, col, text, style);
        }
    }
    void cursor(harness::Place at) { block(at.row, at.col, 1, "#e8b75a"); }
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
        const int inner = x(kCols) + kBorder, height = y(picture_.rows) + kBorder;
        std::ostringstream svg;
        svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << inner + kNotesWidth
            << "\" height=\"" << height << "\" viewBox=\"0 0 " << inner + kNotesWidth << ' '
            << height << "\">\n"
            << "<title>" << picture_.title << "</title>\n"
            << "<style>\n"
            << "text { font: " << kFont << "px 'DejaVu Sans Mono', monospace; fill: #c8ccd4; "
            << "white-space: pre }\n"
            << "text.typed { fill: #8fd0ff }\n"
            << "text.key { fill: #20242c }\n"
            << ".cap { fill: #d8dce4; stroke: #8a909c }\n"
            << "text.note { font: 14px 'DejaVu Sans', sans-serif; fill: #777f8c }\n"
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

    // How the cell looks, as attributes of its text.
    std::string look(int row, int col, int typed, VTermScreenCell &cell) const {
        (void)canvas_.cell(row, col, cell);
        std::string style;
        if (!VTERM_COLOR_IS_DEFAULT_FG(&cell.fg))
            style += " style=\"fill: " + canvas_.colour(cell.fg) + '"';
        else if (typed >= 0 && col >= typed)
            style += " class=\"typed\"";
        if (cell.attrs.bold != 0) style += " font-weight=\"bold\"";
        if (cell.attrs.underline != 0) style += " text-decoration=\"underline\"";
        return style;
    }
    void block(int row, int col, int cols, const std::string &colour) {
        out_ << "<rect x=\"" << x(col) << "\" y=\"" << y(row) << "\" width=\"" << cols * kCellWidth
             << "\" height=\"" << kCellHeight << "\" fill=\"" << colour << "\"/>\n";
    }
    void put_text(int row, int from, int to, std::string text, const std::string &style) {
        while (text.ends_with(' ')) text.pop_back(), --to;
        const auto first = text.find_first_not_of(' ');
        if (first == std::string::npos) return;
        from += static_cast<int>(first);
        out_ << "<text" << style << " x=\"" << x(from) << "\" y=\"" << base(row)
             << "\" textLength=\"" << (to - from) * kCellWidth << "\">" << text.substr(first)
             << "</text>\n";
    }

    const Picture &picture_;
    const Canvas &canvas_;
    std::ostringstream out_;
};

std::string draw(const Picture &picture, const Canvas &canvas, const std::vector<Typed> &typed) {
    Drawing drawing(picture, canvas);
    drawing.cursor(canvas.cursor());
    for (int row = 0; row < picture.rows; ++row) {
        int from = -1;
        for (const Typed &t : typed) {
            if (t.row != row) continue;
            if (from < 0 || t.step->from >= 0) from = t.step->from >= 0 ? t.step->from : t.col;
            if (!t.step->note.empty()) drawing.note(row, *t.step);
        }
        drawing.row(row, from);
    }
    return drawing.finished();
}

// In the session's folder, from which its commands come first.
void make_sleep(const std::string &folder) {
    const std::string name = folder + "/sleep";
    std::ofstream(name) << "#!/bin/sh\nuntil [ -e awake ]; do /bin/sleep 0.05; done\n";
    std::filesystem::permissions(name, std::filesystem::perms::owner_all);
}

std::string make_picture(const Picture &picture) {
    const std::string folder = std::filesystem::path(harness::morp()).parent_path();
    Session s(harness::Options{
        .style = "",  // what is typed is all that somebody needs who tries it
        .outer = {"/bin/sh", "-i"},
        .env = {{"PATH", ".:" + folder + ":/usr/bin:/bin"}, {"LC_ALL", "C.UTF-8"}},
        .rows = picture.rows,
        .cols = kCols,
    });
    Canvas canvas(picture.rows);
    std::vector<Typed> typed;
    s.wait_row(0, "$");
    make_sleep(s.home());
    for (const Step &step : picture.steps) {
        canvas.follow(s.output());
        const harness::Place at = canvas.cursor();
        typed.push_back({at.row, at.col, &step});
        const std::size_t mark = s.mark();
        if (step.keys == kWake)
            std::ofstream(s.home() + "/awake");
        else
            s.type(step.keys);
        s.wait_for("the row \"" + std::string(step.shown) + "\"", [&] {
            canvas.follow(s.output());
            return s.mark() > mark && canvas.cursor() != at && canvas.typed_so_far() == step.shown;
        });
        if (s.mode() != harness::Mode::original) s.wait_asleep();
        canvas.follow(s.output());
    }
    return draw(picture, canvas, typed);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::cerr << "usage: picture FOLDER\n";
        return 2;
    }
    try {
        for (const Picture &picture : kPictures) {
            std::ofstream out(std::filesystem::path(argv[1]) / picture.file);
            if (!(out << make_picture(picture)).flush()) {
                std::cerr << "cannot write " << picture.file << '\n';
                return 1;
            }
        }
    } catch (const std::exception &error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
