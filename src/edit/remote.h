// remote.h: which files can't be looked at without asking somebody who may never answer: those of
// file systems that ask the network or a program. Nothing here touches such a file.
#pragma once

#include <string_view>

// What stands behind the first `n` characters of `text`, which has so many. substr checks that, and
// for the check alone the program would load the C++ library.
constexpr std::string_view rest_of(std::string_view text, std::size_t n) {
    text.remove_prefix(n);
    return text;
}

// Whether the path `name`, which counts from the folder open as `folder` (AT_FDCWD: morp's own),
// leads there, also through symbolic links. What doesn't exist counts as where it would be. A path
// that is too long, or leads through too many links, counts as remote; where the system has no
// table of them none is.
bool is_remote(int folder, const char *name);
// Whether the absolute path `path` as it stands does, with `mounts` as /proc/self/mountinfo has
// them.
bool is_remote_in(std::string_view mounts, std::string_view path);
