#include "keys.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace soak {
namespace {

constexpr char kErase = '\x7f';
constexpr const char *kEsc = "\x1b";

struct Way {
    Random &random;
    const std::string &line;
    const Lines &history;
    std::size_t cut;  // a place within the line

    std::string head() const { return line.substr(0, cut); }
    std::string tail() const { return line.substr(cut); }
    std::string junk() const { return letters(random, 1 + below(random, 8)); }
};

std::string times(std::size_t n, const std::string &keys) {
    std::string all;
    for (; n > 0; --n) all += keys;
    return all;
}

bool simple(const std::string &text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < '\x7f'; });
}

std::size_t common(const std::string &a, const std::string &b) {
    const std::size_t n = std::min(a.size(), b.size());
    return static_cast<std::size_t>(
        std::mismatch(a.begin(), a.begin() + static_cast<long>(n), b.begin()).first - a.begin());
}

// A word of a line that is in reach, empty when there is none fit for a search.
std::string old_word(const Way &w) {
    if (w.history.empty()) return "";
    const std::size_t reach = std::min<std::size_t>(w.history.size(), 60);
    const std::string &old = w.history[w.history.size() - 1 - below(w.random, reach)];
    const auto from = std::find_if(old.begin(), old.end(), [](char c) { return islower(c); });
    const auto to = std::find_if_not(from, old.end(), [](char c) { return islower(c); });
    return {from, to};
}

std::string straight(const Way &w) { return w.line; }
std::string mistakes(const Way &w) {
    std::string keys;
    for (const char c : w.line) {
        if (below(w.random, 8) == 0) {
            const std::string wrong = w.junk();
            keys += wrong + std::string(wrong.size(), kErase);
        }
        keys += c;
    }
    return keys;
}
std::string kill_and_again(const Way &w) { return w.junk() + "\x15" + w.line; }

std::string insert_later(const Way &w) {
    const std::size_t gap = below(w.random, w.tail().size());
    const std::string rest = w.tail().substr(gap);
    static const char *const kBack[] = {"\x02", "\x1b[D"};
    std::string back = times(rest.size(), kBack[below(w.random, 2)]);
    if (below(w.random, 3) == 0) back = "\x01" + times(w.cut, "\x06");
    if (below(w.random, 3) == 0) back = kEsc + std::to_string(rest.size()) + "\x02";
    return w.head() + rest + back + w.tail().substr(0, gap) + "\x05";
}
std::string change_old(const Way &w) {
    const std::size_t back = 1 + below(w.random, std::min<std::size_t>(w.history.size(), 6));
    if (back > w.history.size()) return w.line;
    const std::string &old = w.history[w.history.size() - back];
    const std::size_t kept = common(old, w.line);
    static const char *const kUp[] = {"\x10", "\x1b[A"};
    return times(back, kUp[below(w.random, 2)]) + std::string(old.size() - kept, kErase) +
           w.line.substr(kept);
}
std::string search_and_kill(const Way &w) {
    const std::string word = old_word(w);
    return word.empty() ? w.line : "\x12" + word + "\r\x15" + w.line;
}
std::string kill_and_yank(const Way &w) {
    return w.cut == 0 ? w.line : w.head() + "\x01\x0b\x19" + w.tail();
}
std::string swap(const Way &w) {
    if (w.tail().size() < 2) return w.line;
    const std::string two = w.tail().substr(0, 2);
    return w.head() + two[1] + two[0] + "\x14" + w.tail().substr(2);
}
std::string delete_word(const Way &w) {
    return w.head() + " " + w.junk() + kEsc + "h" + kErase + w.tail();
}
std::string wander(const Way &w) {
    return w.line + "\x1b" + "b\x1b" + "b\x06\x02\x0c\x1b" + "f\x16\x05";
}

std::string vi_insert_later(const Way &w) {
    const std::size_t gap = below(w.random, w.tail().size());
    const std::string go = w.cut == 0 ? "0" : "0" + std::to_string(w.cut) + "l";
    return w.head() + w.tail().substr(gap) + kEsc + go + "i" + w.tail().substr(0, gap) + kEsc + "A";
}
std::string vi_change_line(const Way &w) {
    static const char *const kChange[] = {"cc", "S", "ddi", "0C", "0Di"};
    return w.junk() + kEsc + kChange[below(w.random, std::size(kChange))] + w.line;
}
std::string vi_change_old(const Way &w) {
    const std::size_t back = 1 + below(w.random, std::min<std::size_t>(w.history.size(), 6));
    if (back > w.history.size()) return w.line;
    const std::string &old = w.history[w.history.size() - back];
    const std::size_t kept = common(old, w.line);
    const std::string recall = kEsc + times(back, below(w.random, 2) == 0 ? "k" : "-");
    if (kept == 0 || kept == old.size()) return recall + "S" + w.line;
    return recall + "0" + std::to_string(kept) + "lDA" + w.line.substr(kept);
}
std::string vi_search(const Way &w) {
    const std::string word = old_word(w);
    return word.empty() ? w.line : std::string(kEsc) + "/" + word + "\rcc" + w.line;
}
std::string vi_swap(const Way &w) {
    if (w.tail().size() < 2) return w.line;
    const std::string two = w.tail().substr(0, 2);
    return w.head() + two[1] + two[0] + kEsc + "xPA" + w.tail().substr(2);
}
std::string vi_undo(const Way &w) { return w.line + kEsc + "0DuA"; }
std::string vi_replace(const Way &w) {
    if (w.tail().empty()) return w.line;
    const std::string go = w.cut == 0 ? "0" : "0" + std::to_string(w.cut) + "l";
    return w.head() + "?" + w.tail().substr(1) + kEsc + go + "r" + w.line[w.cut] + "A";
}
std::string vi_delete_word(const Way &w) {
    return w.head() + " " + w.junk() + "\x17" + kErase + w.tail();
}
std::string vi_wander(const Way &w) { return w.line + kEsc + "bbwe0$hhl^\x0c$A"; }

struct Road {
    const char *name;
    std::string (*keys)(const Way &);
};
constexpr Road kEmacs[] = {
    {"straight", straight},
    {"mistakes", mistakes},
    {"kill and again", kill_and_again},
    {"insert later", insert_later},
    {"change old", change_old},
    {"search and kill", search_and_kill},
    {"kill and yank", kill_and_yank},
    {"swap", swap},
    {"delete word", delete_word},
    {"wander", wander},
};
constexpr Road kVi[] = {
    {"straight", straight},
    {"mistakes", mistakes},
    {"kill and again", kill_and_again},
    {"insert later", vi_insert_later},
    {"change line", vi_change_line},
    {"change old", vi_change_old},
    {"search", vi_search},
    {"swap", vi_swap},
    {"undo", vi_undo},
    {"replace", vi_replace},
    {"delete word", vi_delete_word},
    {"wander", vi_wander},
};

// Commands that take more keys have them here, so that nothing is pending at the end.
constexpr const char *kWildEmacs[] = {"\x01",
                                      "\x02",
                                      "\x05",
                                      "\x06",
                                      "\x0b",
                                      "\x0c",
                                      "\x0e",
                                      "\x10",
                                      "\x14",
                                      "\x17",
                                      "\x18\x18",
                                      "\x19",
                                      "\x7f",
                                      "\x1b<",
                                      "\x1b>",
                                      "\x1b ",
                                      "\x1b"
                                      "b",
                                      "\x1b"
                                      "f",
                                      "\x1bh",
                                      "\x1b"
                                      "d",
                                      "\x1b"
                                      "c",
                                      "\x1bl",
                                      "\x1bp",
                                      "\x1b"
                                      "3",
                                      "\x1b"
                                      "12",
                                      "\x1d"
                                      "a",
                                      "\x12"
                                      "a\r",
                                      "\x12\r",
                                      "\x1b[A",
                                      "\x1b[B",
                                      "\x1b[C",
                                      "\x1b[D",
                                      "\x16",
                                      " ",
                                      "-",
                                      "word ",
                                      "a.b"};
constexpr const char *kWildVi[] = {
    "\x1b", "\x1b", "\x7f", "\x17", "\x15", "a",  "A",  "i",        "I",     "R",  "rx", "~",
    "cw",   "cc",   "dw",   "db",   "dd",   "yw", "y$", "C",        "D",     "Y",  "S",  "s",
    "x",    "X",    "p",    "P",    "u",    "U",  ".",  "k",        "j",     "G",  "n",  "N",
    "/a\r", "?a\r", "_",    "3",    "w",    "b",  "e",  "W",        "B",     "E",  "0",  "$",
    "h",    "l",    "fa",   "Ta",   ";",    ",",  "#",  "\x1b\x0c", "word ", "a.b"};

template <std::size_t N>
const char *any(Random &random, const char *const (&list)[N]) {
    return list[below(random, N)];
}

}  // namespace

std::size_t below(Random &random, std::size_t n) { return n == 0 ? 0 : random() % n; }

std::string letters(Random &random, std::size_t n) {
    std::string text;
    while (text.size() < n) text += static_cast<char>('a' + below(random, 26));
    return text;
}

Keys keys_for(Random &random, const std::string &line, bool vi, const Lines &history) {
    const std::size_t cut = below(random, line.size());
    const Way way{random, line, history, cut};
    if (!simple(line)) return {"bytes", line};
    const Road &road =
        vi ? kVi[below(random, std::size(kVi))] : kEmacs[below(random, std::size(kEmacs))];
    return {road.name, road.keys(way)};
}

std::string wild_keys(Random &random, bool vi) {
    std::string keys;
    for (std::size_t n = 1 + below(random, 25); n > 0; --n)
        keys += vi ? any(random, kWildVi) : any(random, kWildEmacs);
    return keys;
}

}  // namespace soak
