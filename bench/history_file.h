// history_file.h: history files to measure with, written byte by byte: see docs/history-format.md.
#pragma once

#include <fstream>
#include <string>

namespace bench {

// Commands 1 to `count`: the `oldest`, lines that differ in a number, the `newest`.
inline void write_history(const std::string &path, int count, const std::string &oldest,
                          const std::string &newest) {
    constexpr std::size_t kSyncFrom = 8192;
    std::string all = "\x81\x01";
    for (int n = 1; n <= count; n++) {
        all += n == 1       ? oldest
               : n == count ? newest
                            : "grep -n pattern" + std::to_string(n) + " src/file.cpp";
        all += '\n';
        all.append(all.size() % 2 != 0 ? 1 : 2, '\0');
        if (all.size() <= kSyncFrom) continue;
        const int next = n + 1;
        for (const int byte : {0x82, 0, next >> 16, next >> 8, next, 0})
            all += static_cast<char>(byte);
    }
    std::ofstream(path, std::ios::binary) << all;
}

}  // namespace bench
