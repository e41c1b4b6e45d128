// cases.h: test cases kept as text in tests/cases. A file holds sections:
//
//     # A comment.
//     style = vi                 a setting; before the first section it holds in all of them
//     [Motions]
//     history = ls; make all     a setting of the section
//     name        | keys  | line
//     end of line | ab^Ec | abc
//
// A section is a table, whose first line names the columns, or a list of steps (see script.h), or
// a table and, behind a line "steps", the steps for each of its rows. A column is a setting of one
// case. Columns named before the first section are those of every table that names none. Text is
// written so:
//
//     ^A ^[ ^?      control keys, ^? the delete key
//     \e \s \n ...  escape, blank (which would be trimmed), \a \b \n \r \t as in C
//     \xHH          a byte
//     {text*9}      the text nine times
//     \c            at the end: what usually follows the text, such as a newline, doesn't
//     \             before any other character: that character itself
#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace harness {

// Settings by name, as they are written.
using Fields = std::map<std::string, std::string>;

struct Case {
    std::string where;  // file, line and name, for messages
    Fields fields;      // the settings of the section among them
};

struct Section {
    struct Line {
        std::string where, text;
    };
    std::string name;
    Fields settings;
    std::vector<Line> lines;  // without blanks around them

    // One for each row of the table; a single one where there is none.
    std::vector<Case> cases() const;
    std::vector<Line> steps() const;
};
void PrintTo(const Section &section, std::ostream *out);
// Names the tests of sections.
inline const auto kNamed = [](const auto &test) { return test.param.name; };

// The sections of tests/cases/`file`. Throws when the file can't be read or is no such file.
std::vector<Section> sections_of(const std::string &file);
// The bytes that `text` stands for, `end` behind them.
std::string unescaped(std::string_view text, std::string_view end = "");
// Text that stands for `bytes`.
std::string escaped(std::string_view bytes);
// `text` with what the settings named in it, as "$name", stand for.
std::string filled(std::string text, const Fields &fields);
using Words = std::vector<std::string>;
Words words_of(const std::string &text);
// What stands between separators, without blanks around it.
Words cells_of(const std::string &line);
// A setting's text, `otherwise` where it isn't set.
std::string get(const Fields &fields, const std::string &name, const std::string &otherwise = "");

}  // namespace harness
