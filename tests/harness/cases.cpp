#include "harness/cases.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <ostream>
#include <sstream>
#include <stdexcept>

namespace harness {

static std::string trimmed(const std::string &text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

Words cells_of(const std::string &line) {
    Words cells(1);
    for (std::size_t i = 0; i < line.size(); i++) {
        if (line[i] == '|') {
            cells.emplace_back();
            continue;
        }
        cells.back() += line[i];
        if (line[i] == '\\' && i + 1 < line.size()) cells.back() += line[++i];
    }
    for (std::string &cell : cells) cell = trimmed(cell);
    return cells;
}

static bool is_table(const Section &section) {
    return section.lines.front().text.starts_with("name ");
}

std::vector<Case> Section::cases() const {
    if (!is_table(*this)) return {{name, settings}};
    std::vector<Case> cases;
    const Words columns = cells_of(lines.front().text);
    for (std::size_t n = 1; n < lines.size() && lines[n].text != "steps"; n++) {
        const Words cells = cells_of(lines[n].text);
        if (cells.size() != columns.size()) throw std::runtime_error(lines[n].where + "columns");
        Case c = {lines[n].where + cells[0], settings};
        for (std::size_t i = 0; i < cells.size(); i++) c.fields[columns[i]] = cells[i];
        cases.push_back(c);
    }
    return cases;
}

std::vector<Section::Line> Section::steps() const {
    if (!is_table(*this)) return lines;
    const auto at = std::find_if(lines.begin(), lines.end(),
                                 [](const Line &line) { return line.text == "steps"; });
    return {at == lines.end() ? at : at + 1, lines.end()};
}

void PrintTo(const Section &section, std::ostream *out) { *out << section.name; }

// Takes a line "name = text". False when it is none.
static bool take_setting(const std::string &line, Fields &settings) {
    const std::size_t end = line.find_first_not_of("abcdefghijklmnopqrstuvwxyz_");
    if (end == 0 || end == std::string::npos || line.compare(end, 2, " =") != 0) return false;
    settings[line.substr(0, end)] = trimmed(line.substr(end + 2));
    return true;
}

std::vector<Section> sections_of(const std::string &file) {
    std::ifstream in(MORP_TEST_CASES "/" + file);
    std::vector<Section> sections;
    Section all;
    std::string line;
    for (int number = 1; std::getline(in, line); number++) {
        line = trimmed(line);
        Section &section = sections.empty() ? all : sections.back();
        if (line.empty() || line[0] == '#' || take_setting(line, section.settings)) continue;
        if (line[0] == '[')
            sections.push_back({line.substr(1, line.find(']') - 1), all.settings, {}});
        else
            section.lines.push_back({file + ":" + std::to_string(number) + ": ", line});
    }
    if (sections.empty() || all.lines.size() > 1) throw std::runtime_error(file + ": no sections");
    for (Section &section : sections) {
        if (section.lines.empty()) throw std::runtime_error(file + ": nothing in " + section.name);
        if (!is_table(section))
            section.lines.insert(section.lines.begin(), all.lines.begin(), all.lines.end());
    }
    return sections;
}

// The byte of the escape at `i`, which moves to its last character.
static char escaped(std::string_view text, std::size_t &i) {
    static constexpr std::string_view kNames = "abenrst", kBytes = "\a\b\x1b\n\r \t";
    if (text[i] == '^') return static_cast<char>(text.at(++i) == '?' ? 127 : text[i] & 31);
    const std::size_t known = kNames.find(text.at(++i));
    if (known != std::string_view::npos) return kBytes[known];
    if (text[i] != 'x') return text[i];
    i += 2;
    return static_cast<char>(std::stoi(std::string(text.substr(i - 1, 2)), nullptr, 16));
}

std::string unescaped(std::string_view text, std::string_view end) {
    std::string bytes;
    std::size_t repeated = 0;  // where the text in braces begins
    for (std::size_t i = 0; i < text.size(); i++) {
        if (text.substr(i) == "\\c") return bytes;
        if (text[i] == '{') {
            repeated = bytes.size();
        } else if (text[i] == '*' && text.find('}', i) != std::string_view::npos) {
            const std::string unit = bytes.substr(repeated);
            const std::size_t close = text.find('}', i);
            int times = std::stoi(std::string(text.substr(i + 1, close - i - 1)));
            for (bytes.resize(repeated); times > 0; times--) bytes += unit;
            i = close;
        } else {
            bytes += text[i] == '^' || text[i] == '\\' ? escaped(text, i) : text[i];
        }
    }
    return bytes.append(end);
}

std::string escaped(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        char hex[8] = {c};
        if (isalnum(static_cast<unsigned char>(c)) == 0)
            (void)snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
        text += hex;
    }
    return text;
}

std::string filled(std::string text, const Fields &fields) {
    for (const auto &[name, value] : fields)
        for (std::size_t at = 0; (at = text.find("$" + name, at)) != std::string::npos;
             at += value.size())
            text.replace(at, name.size() + 1, value);
    return text;
}

Words words_of(const std::string &text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

std::string get(const Fields &fields, const std::string &name, const std::string &otherwise) {
    const auto found = fields.find(name);
    return found == fields.end() ? otherwise : found->second;
}

}  // namespace harness
