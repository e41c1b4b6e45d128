// remote.cpp: see remote.h. The table of mounts tells of what kind a file system is without a look
// at it. A path is followed link by link, each step only once it is known where it leads.
#include "edit/remote.h"

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>

#include "os.h"

static constexpr int kMostLinks = 40;  // as many as the system follows

// State of one look: the table, and the path as far as it is resolved.
static char Table[128 * 1024];
static char Path[PATH_MAX];
static std::size_t Path_len = 0;

// "fuse" and what begins so is a program that answers; "autofs" mounts when it is looked at.
static bool is_remote_type(std::string_view type) {
    static constexpr std::string_view kBeginnings[] = {
        "nfs", "cifs", "smb", "ncpfs", "afs", "coda", "ceph", "lustre", "beegfs", "fuse", "autofs"};
    return std::any_of(std::begin(kBeginnings), std::end(kBeginnings),
                       [type](std::string_view beginning) { return type.starts_with(beginning); });
}

// Takes the next field off `line`.
static std::string_view take_field(std::string_view &line) {
    const std::string_view field = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(line.size(), field.size() + 1));
    return field;
}

// The length of mount point `point` where `path` is in it, -1 where it isn't. The table has blanks
// and the like in three octal digits behind a backslash.
static int length_within(std::string_view point, std::string_view path) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < point.size(); i++, n++) {
        char c = point[i];
        if (c == '\\' && point.size() - i > 3) {
            c = static_cast<char>((point[i + 1] - '0') * 64 + (point[i + 2] - '0') * 8 +
                                  (point[i + 3] - '0'));
            i += 3;
        }
        if (n >= path.size() || path[n] != c) return -1;
    }
    const bool whole = n == path.size() || path[n] == '/' || point == "/";
    return whole ? static_cast<int>(n) : -1;
}

bool is_remote_in(std::string_view mounts, std::string_view path) {
    if (path.empty()) path = "/";
    bool remote = false;
    int longest = -1;
    while (!mounts.empty()) {
        std::string_view line = mounts.substr(0, mounts.find('\n'));
        mounts.remove_prefix(std::min(mounts.size(), line.size() + 1));
        for (int i = 0; i < 4; i++) (void)take_field(line);
        const int len = length_within(take_field(line), path);
        // Of two mounts in one place the later one is seen.
        if (len < longest || len < 0) continue;
        longest = len;
        while (!line.empty() && take_field(line) != "-") {
        }
        remote = is_remote_type(take_field(line));
    }
    return remote;
}

static bool any_remote(std::string_view mounts) {
    // A line of its own for each: " - " stands in front of the type.
    for (std::size_t at = 0; (at = mounts.find(" - ", at)) != std::string_view::npos; at += 3)
        if (is_remote_type(rest_of(mounts, at + 3))) return true;
    return false;
}

// Goes one step on from the path resolved.
static void step(std::string_view name) {
    if (name.empty() || name == ".") return;
    if (name == "..") {
        while (Path_len > 0 && Path[--Path_len] != '/') {
        }
        return;
    }
    Path[Path_len++] = '/';
    Path_len += name.copy(Path + Path_len, name.size());
}

// Puts what the link at the path resolved says in front of the `len` bytes of `left`, of which
// `room` may be used. Returns their number then, or `len` where it is no link; -1 without room.
static long follow_link(char *left, std::size_t len, std::size_t room) {
    char target[PATH_MAX];
    Path[Path_len] = '\0';
    const ssize_t n = readlink(Path, target, sizeof target);
    if (n < 0) return static_cast<long>(len);
    const std::size_t size = static_cast<std::size_t>(n);
    if (size + 1 + len > room) return -1;
    std::memmove(left + size + 1, left, len);
    std::memcpy(left, target, size);
    left[size] = '/';
    if (target[0] == '/')
        Path_len = 0;
    else
        step("..");
    return static_cast<long>(size + 1 + len);
}

// Resolves the path that the `len` bytes of `left` (PATH_MAX) are.
static bool leads_there(std::string_view mounts, char *left, std::size_t len) {
    Path_len = 0;
    for (int links = 0; len > 0;) {
        const std::string_view rest(left, len);
        const std::string_view name = rest.substr(0, rest.find('/'));
        if (name.size() + 2 > sizeof Path - Path_len) return true;
        const std::size_t before = Path_len;
        step(name);
        len -= std::min(len, name.size() + 1);
        std::memmove(left, left + rest.size() - len, len);
        if (Path_len <= before) continue;
        if (is_remote_in(mounts, {Path, Path_len})) return true;
        const long longer = follow_link(left, len, PATH_MAX);
        if (longer < 0) return true;
        const bool link = longer != static_cast<long>(len);
        if (link && ++links > kMostLinks) return true;
        len = static_cast<std::size_t>(longer);
    }
    return is_remote_in(mounts, {Path, Path_len});
}

bool is_remote(int folder, const char *name) {
    const std::string_view mounts(Table, os_mounts(Table, sizeof Table));
    if (!any_remote(mounts)) return false;
    char path[PATH_MAX];
    std::size_t len = 0;
    if (name[0] != '/') {
        len = folder == AT_FDCWD ? os_folder_of(getpid(), path, sizeof path - 1)
                                 : os_path_of(folder, path, sizeof path - 1);
        if (len == 0) return true;
        path[len++] = '/';
    }
    const std::string_view rest = name;
    if (rest.size() > sizeof path - len) return true;
    len += rest.copy(path + len, rest.size());
    return leads_there(mounts, path, len);
}
