// keys.h: what a person types to get a line: rarely just the line. The ways are rows of
// tests/cases/soak.txt.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "harness/cases.h"

namespace soak {

using Random = std::mt19937_64;
using Lines = std::vector<std::string>;

// 0 to n - 1; 0 as well when n is 0.
std::size_t below(Random &random, std::size_t n);
template <typename T>
const T &any_of(Random &random, const std::vector<T> &list) {
    return list[below(random, list.size())];
}
// `n` lower-case letters.
std::string letters(Random &random, std::size_t n);
// Printable characters and nothing else.
bool simple(const std::string &text);

// The rows of a table of soak.txt.
const std::vector<harness::Case> &rows_of(const std::string &table);

struct Keys {
    std::string way;  // for the log
    std::string bytes;
};
// Keys that leave exactly `line` in an edit that was empty, the cursor at its end: with mistakes
// taken back, parts put in afterwards, old lines changed. `history` is what the editor has in
// reach, oldest first.
Keys keys_for(Random &random, const std::string &line, bool vi, const Lines &history);
// Commands and text without a plan, an Enter among them at times. Neither ends the input nor sends
// a signal nor quotes a control character.
std::string wild_keys(Random &random, bool vi);

}  // namespace soak
