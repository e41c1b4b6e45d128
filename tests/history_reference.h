// history_reference.h: the rules of the history file as simple as can be, and the comparison of the
// open history with them.
#pragma once

#include <algorithm>
#include <bit>
#include <map>
#include <string>
#include <string_view>

#include "history.h"
#include "morp_defs.h"

struct Reference {
    // Indexes the history file with the contents `all`, for `commands` commands.
    Reference(std::string all, int commands) : file(std::move(all)), reach(commands) {
        const std::string sync("\0\x82\0", version == 0 ? 2 : 3);
        long offset = std::ssize(file) - 8192, missing = reach;
        bool found;
        do {
            offset -= 16 * missing + 8192;
            const std::size_t i =
                offset > 0 ? file.find(sync, std::size_t(offset)) : std::string::npos;
            found = i != std::string::npos && i + 7 <= file.size();
            const int first = found ? std::max(sync_number(i + 2), 1) : 1;
            index(first, found ? i + 7 : 2);
            missing = reach - (number - first);
        } while (found && missing > 0);
    }

    int byte(std::size_t i) const { return byte_of(file[i]); }
    int sync_number(std::size_t i) const {
        if (version == 0) return (byte(i) & 127) * 128 + (byte(i + 1) & 127);
        return (byte(i + 1) * 256 + byte(i + 2)) * 256 + byte(i + 3);
    }

    void index(int first, std::size_t p) {
        starts.clear();
        enter(first, p);
        for (std::size_t end; (end = file.find('\0', p)) != std::string::npos;) {
            const std::string_view record(&file[p], end - p);
            const bool old_sync = version == 0 && record.starts_with('\x82');
            p = old_sync ? p + 5 : end + 1;
            if (old_sync) continue;
            enter(std::max(number + (record.size() > 1 ? 1 : record == "\x81" ? -1 : 0), 1), p);
            if (record == "\x82") p += 3;
        }
    }
    void enter(int n, std::size_t at) {
        const int ring = std::max(int(std::bit_floor(unsigned(reach))) * 2, 16);
        starts.erase(starts.upper_bound(n), starts.end());
        starts.erase(starts.begin(), starts.upper_bound(n - ring));
        starts[number = n] = long(at);
    }

    long start(int n) const { return starts.count(n) != 0 ? starts.at(n) : -1; }
    // The command's bytes up to its NUL; none for what isn't held and for the line being edited.
    std::string_view text(int n) const {
        if (n == number || start(n) < 0) return {};
        const std::string_view rest = std::string_view(file).substr(std::size_t(start(n)));
        return rest.substr(0, rest.find('\0'));
    }
    std::string line(int n, int line) const {
        std::string_view t = text(n);
        for (int i = 0; i < line; i++) t.remove_prefix(std::min(t.find('\n'), t.size() - 1) + 1);
        if (line >= 0) t = t.substr(0, t.find('\n'));
        if (t.ends_with('\n')) t.remove_suffix(1);
        return std::string(t.substr(0, 257));
    }
    histloc find(std::string_view what, int from, bool anywhere, int step) const {
        const int bound = step > 0 ? number : std::max(number - reach, 1);
        while ((bound - from) * step > 0) {
            const std::string_view t = text(from += step);
            const std::size_t hit = t.find(what);
            if (hit != std::string::npos && (hit == 0 || anywhere))
                return {from, int(std::count(t.data(), t.data() + hit + what.size(), '\n'))};
        }
        return {-1, 0};
    }

    std::string file;
    int reach;
    int version = file.size() > 1 ? byte(1) : 1;
    int number = 1;  // of the line being edited
    std::map<int, long> starts;
};

// How the open history differs from the rules for `file`; empty when it does not.
inline std::string difference(const std::string &file, int reach) {
    const Reference want(file, reach);
    if (fc_fix->fixind != want.number) return "next is " + std::to_string(want.number);
    for (int n = fc_fix->fixind + 2; n > fc_fix->fixind - 2 * reach - 20; n -= 1 + reach / 50) {
        const std::string_view text = want.text(n);
        const int lines = int(std::count(text.begin(), text.end(), '\n'));
        bool same = hist_position(n) == want.start(n) && hist_copy(nullptr, n, -1) == lines;
        for (const int line : {-1, 0, 1}) {
            char to[kMaxLine];
            const int passed = hist_copy(to, n, line);
            same = same && to == want.line(n, line);
            if (text.size() <= 258)
                same = same && passed == (line < 0 ? lines : std::min(lines, line + 1));
        }
        // Some text, another for each command.
        const auto mix = unsigned(n);
        const std::string what(
            "aab\nc\x82\n\x81"
            "abb",
            mix % 8, mix / 8 % 4);
        const int step = mix / 3 % 2 != 0 ? 1 : -1, anywhere = mix / 5 % 2;
        const histloc at = hist_find(what.c_str(), n, anywhere, step);
        const histloc found = want.find(what, n, anywhere != 0, step);
        same = same && at.his_command == found.his_command && at.his_line == found.his_line;
        if (!same) return "command " + std::to_string(n);
    }
    return "";
}
