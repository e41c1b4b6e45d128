// history_fuzz.cpp: any bytes as a history file: opened, searched, copied, compared with the
// byte-wise reference, appended to.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "../tests/history_reference.h"
#include "history.h"
#include "morp_defs.h"

static void require(bool holds) {
    if (!holds) std::abort();
}

static void compare(const Reference &expected, int n) {
    char to[kMaxLine];
    std::string wanted;
    require(hist_position(n) == expected.start(n));
    for (const int line : {-1, 0, 1}) {
        require(hist_copy(to, n, line) == expected.copy(&wanted, n, line));
        require(wanted == to);
    }
    for (const char *text : {"a", "ab", "\x82\n", "abc"}) {
        for (const int direction : {-1, 1}) {
            const histloc got = hist_find(text, n, n & 1, direction);
            const histloc want = expected.find(text, n, (n & 1) != 0, direction);
            require(got.his_command == want.his_command && got.his_line == want.his_line);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // Some input stands behind so much that the search for a start begins in front of it.
    if (size < 2) return 0;
    static constexpr int kReaches[] = {1, 20, 100, 600};
    const int reach = kReaches[data[0] % 4];
    std::string file("\x81\1", 2);
    file[1] = static_cast<char>(data[1] % 8 != 0);
    for (int i = data[1]; i > 0; i--) file += std::string(100, 'a') + std::string("\n\0\0\0", 4);
    file.append(reinterpret_cast<const char *>(data) + 2, size - 2);

    static const std::string name = "/tmp/morp-fuzz-" + std::to_string(getpid());
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    require(write(fd, file.data(), file.size()) == static_cast<ssize_t>(file.size()));
    close(fd);
    setenv("Q_VXHISTFILE", name.c_str(), 1);
    setenv("Q_VXHISTSIZE", std::to_string(reach).c_str(), 1);
    require(hist_open() == 0);
    unlink(name.c_str());
    const Reference expected(file, reach);
    require(fc_fix->fixind == expected.number());
    for (const int back : {-1, 0, 1, 2, 5, 20, 100})
        if (fc_fix->fixind - back > 0) compare(expected, fc_fix->fixind - back);
    hist_record("last", 4);
    char to[kMaxLine];
    hist_copy(to, fc_fix->fixind - 1, -1);
    require(data[1] % 8 == 0 || std::strcmp(to, "last") == 0);
    hist_close_for_test();
    return 0;
}
