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
    require(difference(file, reach).empty());
    hist_record("last", 4);
    char to[kMaxLine];
    hist_copy(to, fc_fix->fixind - 1, -1);
    require(data[1] % 8 == 0 || std::strcmp(to, "last") == 0);
    hist_close_for_test();
    return 0;
}
