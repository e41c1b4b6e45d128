// file.cpp: opening the history file and appending to it. The file is shared without locks: it
// only grows, and each command goes out in one write with whatever belongs behind it, so that the
// records of concurrent writers never mix. What was written is then indexed by reading it back.

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "history/history_internal.h"
#include "os.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp history 1.0";

fixcmd *fc_fix = nullptr;

namespace history {

static constexpr int kDefaultReach = 128;
static constexpr long kMaxReach = 1'000'000;
static constexpr int kSmallestRing = 16;
// Buffer of the stream: a record of the longest line, with all that may go around it, fits.
static constexpr std::size_t kStreamBuffer = 4096;
static const char histfname[10] = "./history";  // behind HOME, without Q_VXHISTFILE

// State: the stream's buffer, in use from hist_open on.
static char stream_buffer[kStreamBuffer];

// State: the name that could not be used, and the system's reason; 0: it is another file.
static const char *Refused = nullptr;
static int Refused_errno = 0;
static char Fallback[4096];  // longer names don't exist for the kernel

// Writes where a failure does no harm that a reader would not survive.
static void try_write_at(int fd, const unsigned char *data, std::size_t size, FileOffset offset) {
    [[maybe_unused]] const ssize_t written = pwrite(fd, data, size, offset);
}

// --- Opening ---

// Returns 0 when the file `fd` starts as a history file and sets hist_version, else 1. The version
// of a file that ends behind its first byte is the one that it will get.
static int hist_check(int fd) {
    unsigned char header[kHeaderSize] = {0, kFileVersion};
    if (pread(fd, header, sizeof header, 0) < 1 || header[0] != kMagic) return 1;
    hist_version = header[1];
    return 0;
}

// Makes sure that the regular file `fd` of `size` bytes is a history file or empty, and gives it a
// header. Written at offset 0, not appended: two processes that create the file at the same time
// write the same bytes to the same place. False when it is another file.
static bool claim_file(int fd, FileOffset size) {
    static constexpr unsigned char kHeader[kHeaderSize] = {kMagic, kFileVersion};
    hist_version = kFileVersion;
    if (size > 0 && hist_check(fd) != 0) return false;
    // A failure (disk full) is made up for with the first command.
    if (size < kHeaderSize) try_write_at(fd, kHeader, sizeof kHeader, 0);
    return true;
}

// Opens the file `name`. Returns its descriptor, -1 when it can't be used.
static int open_named(const char *name) {
    struct stat st;
    Refused = name;
    Refused_errno = 0;
    // Even opening a pipe or a device may have an effect on others.
    if (stat(name, &st) == 0 && !S_ISREG(st.st_mode)) return -1;
    const int fd = open(name, O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0600);
    if (fd < 0) {
        Refused_errno = errno;
        return -1;
    }
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && claim_file(fd, st.st_size)) {
        // Fails for a file that belongs to somebody else, who then decides who may read it.
        if ((st.st_mode & 07777) != 0600) (void)fchmod(fd, 0600);
        Refused = nullptr;
        return fd;
    }
    close(fd);
    return -1;
}

// A file without a name, for this run only. Returns its descriptor, or -1.
static int open_temporary() {
    std::FILE *file = std::tmpfile();
    if (file == nullptr) return -1;
    const int fd = fcntl(fileno(file), F_DUPFD_CLOEXEC, 0);
    (void)std::fclose(file);  // nothing was written through it
    if (fd >= 0) (void)claim_file(fd, 0);
    return fd;
}

static int open_file() {
    const char *name = std::getenv("Q_VXHISTFILE");
    const char *home = std::getenv("HOME");
    if (name == nullptr && home != nullptr) {
        const int length = std::snprintf(Fallback, sizeof Fallback, "%s%s", home, histfname);
        if (length >= 0 && static_cast<std::size_t>(length) < sizeof Fallback) name = Fallback;
    }
    const int fd = name != nullptr && *name != '\0' ? open_named(name) : -1;
    return fd >= 0 ? fd : open_temporary();
}

// The stream of the history on descriptor `fd`, which it makes append and which no program
// inherits. Null, with the descriptor closed, when there is no memory.
static std::FILE *hist_rename(int fd) {
    std::FILE *file = fdopen(fd, "a+");
    if (file == nullptr) close(fd);
    return file;
}

// Number of commands to keep in reach.
static int reach() {
    const char *size = std::getenv("Q_VXHISTSIZE");
    if (size == nullptr) return kDefaultReach;
    return static_cast<int>(std::clamp(std::strtol(size, nullptr, 10), 0L, kMaxReach));
}

// The control record with a ring of `ring` entries, all 0. Null without memory.
static fixcmd *new_record(int ring) {
    const std::size_t more = static_cast<std::size_t>(ring) - 1;
    return static_cast<fixcmd *>(std::calloc(1, sizeof(fixcmd) + more * sizeof(FileOffset)));
}

// --- Appending ---

static void put(const void *data, std::size_t size) {
    (void)std::fwrite(data, 1, size, fc_fix->fixfd);  // write_out looks at the stream's error flag
}

static void put_sync(int number) {
    const unsigned char sync[kSyncSize] = {kSync,
                                           0,
                                           static_cast<unsigned char>(number >> 16),
                                           static_cast<unsigned char>(number >> 8),
                                           static_cast<unsigned char>(number),
                                           0};
    put(sync, sizeof sync);
}

// Writes what was put. Returns the offset behind it, -1 when not all of it could be written: the
// rest is dropped then, so that it can't come out later behind what others wrote.
static FileOffset write_out() {
    std::FILE *file = fc_fix->fixfd;
    if (std::fflush(file) == 0 && std::ferror(file) == 0) {
        const FileOffset end =
            lseek(fileno(file), 0, SEEK_CUR);  // where the system has appended it
        if (end < 0) hist_eof();
        return end;
    }
    os_purge(file);
    std::clearerr(file);
    return -1;
}

// True when the last record is not complete. Behind the skipped bytes of a sync record, where only
// its NUL is missing, the next command's start has not been entered yet.
static bool unfinished() {
    return File_tail.prev != 0 || File_tail.skip > 0 ||
           (File_tail.end >= kHeaderSize && ring_start(fc_fix->fixind) != File_tail.end);
}

// Puts what the end of the file lacks: the header when it could not be written, the end of a record
// that a failed write cut short, so that the next one starts afresh. Nothing of this counts as a
// command should the record be complete by then, because another process was just writing it.
// Returns the number of bytes put.
static FileOffset put_missing() {
    static constexpr unsigned char kHeader[kHeaderSize] = {kMagic, kFileVersion};
    static constexpr unsigned char kNuls[kSyncSize] = {};
    const Tail &tail = File_tail;
    if (tail.end < kHeaderSize) {
        const FileOffset missing = kHeaderSize - tail.end;
        put(kHeader + tail.end, static_cast<std::size_t>(missing));
        return missing;
    }
    if (!unfinished()) return 0;
    const FileOffset newline = tail.prev != 0 && tail.prev != '\n' ? 1 : 0;
    FileOffset nuls = tail.skip + 1;
    nuls += (tail.end + newline + nuls) % 2;  // a command starts at an even offset
    put("\n", static_cast<std::size_t>(newline));
    put(kNuls, static_cast<std::size_t>(nuls));
    return newline + nuls;
}

// Catches up with other writers and puts what the file lacks in front of the next record. Returns
// the offset at which that record will start.
static FileOffset begin_record() {
    // A write under way elsewhere can be seen in part. It ends within microseconds.
    static constexpr int kPatience = 20;
    hist_eof();
    for (int i = 0; i < kPatience && unfinished(); i++) {
        (void)sched_yield();
        hist_eof();
    }
    return File_tail.end + put_missing();
}

// Corrects the number in the sync record just written, which ends at `end` and says `written`: when
// another process appended between our last look and our write, it is too low. The record stays
// where it is; only on a descriptor that doesn't append does pwrite go there.
static void correct_sync(FileOffset end, int written) {
    const FileOffset offset = end - kSyncSize;
    const int number = fc_fix->fixind;
    const int fd = fileno(fc_fix->fixfd);
    unsigned char sync[kSyncSize];
    if (read_at(offset, sync, sizeof sync) < sizeof sync || sync[0] != kSync || sync[1] != 0 ||
        sync[2] != (written >> 16 & 255) || sync[3] != (written >> 8 & 255) ||
        sync[4] != (written & 255))
        return;
    const unsigned char right[3] = {static_cast<unsigned char>(number >> 16),
                                    static_cast<unsigned char>(number >> 8),
                                    static_cast<unsigned char>(number)};
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags & ~O_APPEND) != 0) return;
    try_write_at(fd, right, sizeof right, offset + 2);
    (void)fcntl(fd, F_SETFL, flags);
}

// Indexes what was written up to `end` (-1: nothing was); `number` is what its sync record says, 0
// when it has none. Then makes up for what the write could not know: an odd end, a sync record due.
static void settle(FileOffset end, int number) {
    bool synced = number != 0;
    while (end >= 0) {
        index_to(end);
        if (number != 0 && number != fc_fix->fixind) correct_sync(end, number);
        const FileOffset padding = end % 2;
        const bool due = !synced && heof == 0 && end + padding > kSyncFrom;
        if (padding == 0 && !due) return;
        put("", static_cast<std::size_t>(padding));
        number = due ? fc_fix->fixind : 0;
        if (due) put_sync(number);
        synced = synced || due;
        end = write_out();
    }
}

}  // namespace history

int hist_open() {
    if (fc_fix != nullptr) return 0;
    const int fd = history::open_file();
    if (fd < 0) return -1;
    std::FILE *file = history::hist_rename(fd);
    if (file == nullptr) return -1;
    const int fixmax = history::reach();
    int ring = history::kSmallestRing;
    while (ring <= fixmax) ring *= 2;
    fc_fix = history::new_record(ring);
    if (fc_fix == nullptr) {
        (void)std::fclose(file);  // nothing was written through it
        return -1;
    }
    (void)std::setvbuf(file, history::stream_buffer, _IOFBF, sizeof history::stream_buffer);
    fc_fix->fixfd = file;
    fc_fix->fixmax = fixmax;
    history::index_open(ring - 1);
    return 0;
}

const char *hist_refused(const char **why) {
    using namespace history;
    *why = Refused_errno != 0 ? strerror(Refused_errno) : "Not a history of morp's";
    return Refused;
}

void hist_flush() {
    if (fc_fix == nullptr) return;
    history::put("\n\0", 2);
    history::settle(history::write_out(), 0);
}

void hist_cancel() {
    static constexpr unsigned char kRecord[] = {history::kCancel, 0};
    if (fc_fix == nullptr) return;
    (void)history::begin_record();
    history::put(kRecord, sizeof kRecord);
    const FileOffset end = history::write_out();
    if (end >= 0) history::index_to(end);
}

void hist_record(const char *text, std::size_t len) {
    // A NUL would end the record.
    len = strnlen(text, len);
    if (fc_fix == nullptr || len == 0) return;
    FileOffset end = history::begin_record() + static_cast<FileOffset>(len) + 2;
    history::put(text, len);
    history::put("\n\0", 2);
    if (end % 2 != 0) {
        history::put("", 1);
        end++;
    }
    const int number = end > history::kSyncFrom ? fc_fix->fixind + 1 : 0;
    if (number != 0) history::put_sync(number);
    history::settle(history::write_out(), number);
}

void hist_close_for_test() {
    if (fc_fix == nullptr) return;
    (void)std::fclose(fc_fix->fixfd);
    std::free(fc_fix);
    fc_fix = nullptr;
}
