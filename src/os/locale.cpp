// locale.cpp: the locale of the characters. A morp that is linked statically can't use the locales
// of the machine it was copied to, which may be in another form, or missing. It brings C.UTF-8
// along, in a file while the library reads it; of other characters it takes bytes.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "os.h"

#ifndef MORP_LOCALE_FILE

void os_take_locale(bool utf8) {
    if (setlocale(LC_CTYPE, "") == nullptr && utf8) (void)setlocale(LC_CTYPE, "C.UTF-8");
}

#else

asm(".pushsection .rodata\n.balign 16\n"
    "locale_start:\n.incbin \"" MORP_LOCALE_FILE
    "\"\n"
    "locale_end:\n"
    ".popsection\n");
extern "C" const char locale_start[];
extern "C" const char locale_end[];

// Where the library looks for locales.
static constexpr char kPlaces[] = "LOCPATH";

static bool write_file(const char *name) {
    const int fd = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    const char *at = locale_start;
    while (at < locale_end) {
        const ssize_t n = write(fd, at, static_cast<std::size_t>(locale_end - at));
        if (n <= 0) break;
        at += n;
    }
    return close(fd) == 0 && at == locale_end;
}

// Sets the locale by way of a folder in `parent`, which is gone afterwards. False where there is no
// room for it.
static bool take_from(const char *parent) {
    char folder[256], sub[300], file[320];
    const int n = std::snprintf(folder, sizeof folder, "%s/morp.XXXXXX", parent);
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof folder || mkdtemp(folder) == nullptr)
        return false;
    (void)std::snprintf(sub, sizeof sub, "%s/C.UTF-8", folder);
    (void)std::snprintf(file, sizeof file, "%s/LC_CTYPE", sub);
    bool taken = false;
    if (mkdir(sub, 0700) == 0 && write_file(file) && setenv(kPlaces, folder, 1) == 0)
        taken = setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    (void)unlink(file);  // mapped, where it was taken
    (void)rmdir(sub);
    (void)rmdir(folder);
    return taken;
}

void os_take_locale(bool utf8) {
    if (!utf8) return;
    const char *const found = getenv(kPlaces);
    for (const char *parent : {"/tmp", "/dev/shm", "/var/tmp", "."})
        if (take_from(parent)) break;
    // The program's own is as it was found.
    if (found != nullptr)
        (void)setenv(kPlaces, found, 1);
    else
        (void)unsetenv(kPlaces);
}

#endif
