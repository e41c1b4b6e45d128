// complete_files.cpp: names of files to complete with. A folder is read as long as there is time,
// without a copy of all its names.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "edit/chars.h"
#include "edit/complete_internal.h"
#include "edit/host.h"
#include "edit/remote.h"
#include "os.h"

namespace complete {

// State of one completion.
static bool Sole_folder = false;

// Stores the home folder of `user` (empty: the user's own) at `dst`. Other users are looked for in
// the local file alone: a look-up might ask the network. Returns its length, 0 for none.
static std::size_t home_of(std::string_view user, char *dst, std::size_t size) {
    char text[64 * 1024];
    std::string_view home;
    if (user.empty()) {
        const char *own = getenv("HOME");
        if (own != nullptr) home = own;
    } else {
        const int fd = open("/etc/passwd", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        const ssize_t n = fd < 0 ? 0 : read(fd, text, sizeof text);
        if (fd >= 0) (void)close(fd);  // nothing was written
        std::string_view left(text, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
        while (!left.empty() && home.empty()) {
            const std::string_view line = left.substr(0, left.find('\n'));
            left.remove_prefix(std::min(left.size(), line.size() + 1));
            if (line.substr(0, line.find(':')) != user) continue;
            const std::size_t end = std::min(line.rfind(':'), line.size());
            const std::size_t start = line.substr(0, end).rfind(':');
            if (start < end) home = rest_of(line.substr(0, end), start + 1);
        }
    }
    if (home.size() >= size) return 0;
    home.copy(dst, home.size());
    return home.size();
}

// Opens the folder that the path `path` names, in the program's view. -1 where there is none.
static int open_folder(std::string_view path) {
    char name[PATH_MAX];
    std::size_t len = 0;
    if (!path.empty() && path[0] == '~') {
        const std::string_view user = rest_of(path.substr(0, path.find('/')), 1);
        len = home_of(user, name, sizeof name);
        if (len == 0) return -1;
        path.remove_prefix(user.size() + 1);
    }
    if (path.size() + 2 > sizeof name - len || path.find('\0') != std::string_view::npos) return -1;
    path.copy(name + len, path.size());
    len += path.size();
    if (len == 0) name[len++] = '.';
    name[len] = '\0';
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;
    const bool own = name[0] == '/' || e_host->open_folder == nullptr;
    const int base = own ? AT_FDCWD : e_host->open_folder();
    if (base == -1) return -1;
    const int fd = is_remote(base, name) ? -1 : openat(base, name, kFlags);
    if (!own) (void)close(base);  // nothing was written
    return fd;
}

// What begins with a dot is hidden, unless the word says so.
static bool is_hidden(std::string_view name, std::string_view word) {
    if (name == "." || name == "..") return name != word;
    return name[0] == '.' && (word.empty() || word[0] != '.');
}

// Whether the sole candidate in `folder` is one, which the folder says is a `kind`.
static bool is_folder(int folder, NameKind kind) {
    if (kind == NameKind::folder) return true;
    if (kind == NameKind::other) return false;
    const std::string_view *sole = nullptr;
    (void)candidates_sorted(&sole);
    char name[kMostBytes + 1];
    name[sole->copy(name, kMostBytes)] = '\0';
    struct stat is = {};
    return !is_remote(folder, name) && fstatat(folder, name, &is, kNoAutomount) == 0 &&
           S_ISDIR(is.st_mode);
}

// Offers the names of `folder`; those with a line end or the character `quote` could not be
// written.
static void read_names(int folder, std::string_view word, genchar quote) {
    constexpr unsigned kBetweenLooks = 256;  // names, between looks at the clock
    const char unfit[] = {'\n', '\r', quote != 0 ? static_cast<char>(quote) : '\n', '\0'};
    NameKind sole = NameKind::unknown;
    NameKind kind = NameKind::unknown;
    FolderNames names = {folder, nullptr, 0, 0};
    for (unsigned i = 0; i % kBetweenLooks != 0 || !late(); i++) {
        const char *entry = os_next_name(names, kind);
        if (entry == nullptr) break;
        const std::string_view name = entry;
        if (is_hidden(name, word) || name.find_first_of(unfit) != std::string_view::npos) continue;
        if (candidates_offer(name, 0)) sole = kind;
    }
    os_end_names(names);
    Sole_folder = candidates_found() == 1 && is_folder(folder, sole);
}

int offer_names(const genchar *path, int n, genchar quote) {
    char bytes[PATH_MAX];
    const genchar *const slash =
        std::find(std::make_reverse_iterator(path + n), std::make_reverse_iterator(path), U'/')
            .base();
    const int folder_units = static_cast<int>(slash - path);
    Sole_folder = false;
    candidates_begin(path + folder_units, n - folder_units, false);
    const int len = bytes_from_units(bytes, sizeof bytes, path, n);
    if (len < bytes_of_units(path, n)) return folder_units;  // no path is that long
    const std::string_view all(bytes, static_cast<std::size_t>(len));
    const std::size_t folder_len = all.rfind('/') + 1;
    if (folder_len == 0 && all.starts_with('~')) {
        // The home folder itself, which only lacks its "/".
        const int fd = open_folder(all);
        if (fd >= 0) Sole_folder = candidates_offer(all, 0);
        if (fd >= 0) (void)close(fd);
        return folder_units;
    }
    const int fd = open_folder(all.substr(0, folder_len));
    if (fd < 0) return folder_units;
    read_names(fd, rest_of(all, folder_len), quote);
    (void)close(fd);  // nothing was written
    return folder_units;
}

bool names_folder() { return Sole_folder; }

}  // namespace complete
