#include "keys.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace soak {

using harness::Fields;

const std::vector<harness::Case> &rows_of(const std::string &table) {
    static std::map<std::string, std::vector<harness::Case>> tables;
    if (tables.empty())
        for (const auto &section : harness::sections_of("soak.txt"))
            tables[section.name] = section.cases();
    return tables.at(table);
}

static std::string with_mistakes(Random &random, const std::string &line) {
    std::string keys;
    for (const char c : line) {
        const std::string wrong =
            below(random, 8) == 0 ? letters(random, 1 + below(random, 8)) : "";
        keys += wrong + std::string(wrong.size(), '\x7f') + c;
    }
    return keys;
}

// A word of a line that is in reach, empty when there is none fit for a search.
static std::string old_word(Random &random, const Lines &history) {
    if (history.empty()) return "";
    const std::size_t reach = std::min<std::size_t>(history.size(), 60);
    const std::string &old = history[history.size() - 1 - below(random, reach)];
    const auto from = std::find_if(old.begin(), old.end(), [](char c) { return islower(c); });
    return {from, std::find_if_not(from, old.end(), [](char c) { return islower(c); })};
}

// One of the last lines, and what it has in common with `line`.
static void add_old(Random &random, const std::string &line, const Lines &history, bool vi,
                    Fields &names) {
    const std::size_t ago = 1 + below(random, std::min<std::size_t>(history.size(), 6));
    if (ago > history.size()) return;
    const std::string &old = history[history.size() - ago];
    const std::size_t most = std::min(old.size(), line.size());
    std::size_t alike = 0;
    while (alike < most && old[alike] == line[alike]) ++alike;
    names["ago"] = std::to_string(ago);
    // In vi the cursor goes to the first character that differs, behind one that doesn't.
    if (vi && (alike == 0 || alike == old.size())) return;
    names["alike"] = std::to_string(alike);
    names["excess"] = std::to_string(old.size() - alike);
    names["other"] = harness::escaped(line.substr(alike));
}

static void add_parts(Random &random, const std::string &line, Fields &names) {
    const std::size_t cut = 1 + below(random, line.size() - 1);
    const std::string tail = line.substr(cut);
    const std::size_t gap = below(random, tail.size());
    const auto add = [&](const char *name, const std::string &text) {
        names[name] = harness::escaped(text);
    };
    add("head", line.substr(0, cut));
    add("tail", tail);
    add("gap", tail.substr(0, gap));
    add("rest", tail.substr(gap));
    add("initial", tail.substr(0, 1));
    add("after", tail.substr(1));
    names["cut"] = std::to_string(cut);
    names["size"] = std::to_string(tail.size() - gap);
    if (tail.size() < 2) return;
    add("first", tail.substr(0, 1));
    add("second", tail.substr(1, 1));
    add("behind", tail.substr(2));
}

std::size_t below(Random &random, std::size_t n) {
    return n == 0 ? 0 : static_cast<std::size_t>(random() % n);
}

std::string letters(Random &random, std::size_t n) {
    std::string text;
    while (text.size() < n) text += static_cast<char>('a' + below(random, 26));
    return text;
}

bool simple(const std::string &text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

Keys keys_for(Random &random, const std::string &line, bool vi, const Lines &history) {
    if (!simple(line)) return {"bytes", line};
    const Lines up = vi ? Lines{"k", "-"} : Lines{"^P", "\\e[A"};
    Fields names = {{"line", harness::escaped(line)},
                    {"wrong", harness::escaped(with_mistakes(random, line))},
                    {"junk", letters(random, 1 + below(random, 8))},
                    {"up", any_of(random, up)},
                    {"left", any_of(random, Lines{"^B", "\\e[D"})},
                    {"change", any_of(random, Lines{"cc", "S", "ddi", "0C", "0Di"})}};
    if (line.size() > 1) add_parts(random, line, names);
    add_old(random, line, history, vi, names);
    if (const std::string word = old_word(random, history); !word.empty()) names["find"] = word;
    const Fields &way = any_of(random, rows_of(vi ? "Vi" : "Emacs")).fields;
    const std::string keys = harness::filled(way.at("keys"), names);
    // What this line, or the history, doesn't offer.
    for (const char *needed : {"$head", "$tail", "$ago", "$alike", "$find", "$second"})
        if (keys.find(needed) != std::string::npos) return {"straight", line};
    return {way.at("name"), harness::unescaped(keys)};
}

std::string wild_keys(Random &random, bool vi) {
    const harness::Words all = harness::words_of(rows_of("WildKeys")[vi ? 1 : 0].fields.at("keys"));
    std::string keys;
    for (std::size_t n = 1 + below(random, 25); n > 0; --n)
        keys += harness::unescaped(any_of(random, all));
    return keys;
}

}  // namespace soak
