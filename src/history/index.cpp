// index.cpp: the rules by which the bytes of the history file become numbered commands, and the
// ring that remembers where each command starts. The rules look at one byte after the other; here
// whole blocks are read and memchr finds the records' ends, with the same result for any bytes.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "history/history_internal.h"
#include "morp_defs.h"

static_assert(sizeof(off_t) == sizeof(FileOffset), "build with -D_FILE_OFFSET_BITS=64");

namespace history {

// State: what is known about the open file besides fc_fix, set up anew by index_open.
unsigned char Block[kBlock];
Tail File_tail = {kHeaderSize, 0, 0};
int heof = 0;
int hist_version = kFileVersion;
static int fixmask;      // ring size less 1
static int lowest_held;  // from here to fixind the ring entries are valid; 1 at least

// The state of the rules between two bytes.
struct Scanner {
    FileOffset pos;    // offset of the next byte
    FileOffset clean;  // last offset seen at which the state was that at a record's start
    int prev = 0;      // byte before pos, 0 also behind skipped bytes
    int incr = 0;      // what the record begun so far will add to the command number
    int skip = 0;      // bytes of a sync record still to pass
    explicit Scanner(FileOffset start) : pos(start), clean(start) {}
    bool at_start() const { return prev == 0 && skip == 0; }
};

// Takes the first byte of a record that is not empty.
static void begin_record(Scanner &s, int c) {
    s.prev = c;
    if (c == kCancel) s.incr = -1;
    if (c == kSync && hist_version == 0) s.skip = 4;
}

// Bytes in front of the first NUL at `data`, `size` (1 at least) when there is none.
static std::size_t length_to_nul(const unsigned char *data, std::size_t size) {
    if (*data == 0) return 0;  // padding and sync records: not worth a call
    const void *nul = std::memchr(data, 0, size);
    return nul != nullptr ? static_cast<std::size_t>(static_cast<const unsigned char *>(nul) - data)
                          : size;
}

// True when a whole sync record of version 1 stands at `data`. The rules only step over it.
static bool is_sync(const unsigned char *data, std::size_t size) {
    return data[0] == kSync && size >= kSyncSize && data[1] == 0 && data[kSyncSize - 1] == 0 &&
           hist_version != 0;
}

// Passes bytes of a sync record that are to be skipped, at most `size`. Returns their number.
static std::size_t skip_bytes(Scanner &s, std::size_t size) {
    const std::size_t step = std::min(static_cast<std::size_t>(s.skip), size);
    s.skip -= static_cast<int>(step);
    s.prev = 0;
    return step;
}

// Runs the rules over the `size` bytes at `data`, the next of the file. Calls `ended(incr, pos)`
// for each NUL that ends a record, with the offset behind it.
template <typename Ended>
static void scan_bytes(Scanner &state, const unsigned char *data, std::size_t size, Ended ended) {
    Scanner s = state;  // so that the compiler can keep it in registers
    const FileOffset base = s.pos;
    std::size_t i = 0;
    while (i < size) {
        if (s.skip > 0) {
            i += skip_bytes(s, size - i);
        } else if (s.prev == 0 && is_sync(data + i, size - i)) {
            i += kSyncSize;
            ended(0, base + static_cast<FileOffset>(i));
        } else {
            if (s.prev == 0 && data[i] != 0) {
                begin_record(s, data[i++]);
                if (s.skip > 0 || i == size) continue;
            }
            const std::size_t end = i + length_to_nul(data + i, size - i);
            if (end > i) {
                s.incr = 1;
                s.prev = data[end - 1];
            }
            i = end;
            if (i == size) break;
            i++;
            if (s.prev == kSync && s.incr == 0) s.skip = 3;
            ended(s.incr, base + static_cast<FileOffset>(i));
            s.incr = 0;
            s.prev = 0;
        }
        if (s.skip == 0) s.clean = base + static_cast<FileOffset>(i);
    }
    s.pos = base + static_cast<FileOffset>(size);
    state = s;
}

std::size_t read_at(FileOffset offset, unsigned char *dst, std::size_t size) {
    const int fd = fileno(fc_fix->fixfd);
    std::size_t got = 0;
    int interrupted = 0;
    while (got < size && interrupted < kInterruptions) {
        const ssize_t n = pread(fd, dst + got, size - got, offset + static_cast<FileOffset>(got));
        if (n > 0)
            got += static_cast<std::size_t>(n);
        else if (n == 0 || errno != EINTR)
            break;
        else
            interrupted++;
    }
    return got;
}

// Runs the rules from the scanner's position up to `limit` or the end of the file.
template <typename Ended>
static void scan_file(Scanner &s, FileOffset limit, Ended ended) {
    while (s.pos < limit) {
        const std::size_t want = piece_of(limit - s.pos);
        const std::size_t got = read_at(s.pos, Block, want);
        scan_bytes(s, Block, got, ended);
        if (got < want) return;
    }
}

// What a stretch of the file does to the command number x in front of it: max(x + net, floor). The
// floor comes from cancel records without a command, which withdraw nothing: no number is below 1.
struct Tally {
    std::int64_t net = 0;
    std::int64_t floor = 1;
    void add(int incr) {
        net += incr;
        floor = std::max<std::int64_t>(floor + incr, 1);
    }
    std::int64_t apply(std::int64_t number) const { return std::max(number + net, floor); }
};

// The tally of `front` followed by `back`.
static Tally joined(const Tally &front, const Tally &back) {
    return {front.net + back.net, std::max(front.floor + back.net, back.floor)};
}

// Where indexing starts: behind a sync record, whose number it is, or at the first record.
struct Start {
    FileOffset offset;
    int number;
};
static constexpr Start kFirstRecord = {kHeaderSize, 1};

// Offset of the first sync record that starts in [`from` + 1, `to`) right behind a NUL; -1 if none.
static FileOffset find_sync(FileOffset from, FileOffset to) {
    static constexpr unsigned char kPattern[] = {0, kSync, 0};
    // In the old format any byte may follow the first one.
    const std::size_t length = hist_version == 0 ? 2 : 3;
    const FileOffset end = to + static_cast<FileOffset>(length) - 2;
    for (FileOffset pos = from; pos < end;) {
        const std::size_t want = piece_of(end - pos);
        const std::size_t got = read_at(pos, Block, want);
        const void *hit = memmem(Block, got, kPattern, length);
        if (hit != nullptr) return pos + (static_cast<const unsigned char *>(hit) - Block) + 1;
        if (got < want || got < length) return -1;
        pos += static_cast<FileOffset>(got - (length - 1));
    }
    return -1;
}

// Reads the sync record at `offset`. False when the file ends within it.
static bool read_sync(FileOffset offset, Start &start) {
    unsigned char b[kSyncSize];
    if (read_at(offset, b, sizeof b) < sizeof b) return false;
    const int number =
        hist_version == 0 ? (b[1] & 127) * 128 + (b[2] & 127) : (b[2] * 256 + b[3]) * 256 + b[4];
    // Only damage, or a number beyond 24 bits, gives 0.
    start = {offset + kSyncSize, std::max(number, 1)};
    return true;
}

// Where an index that looks from `offset` on can start: at the first sync record that begins before
// `to`, or, with `offset` at the front of the file, at its first record. The number is 0 when there
// is no such place.
static Start hist_nearend(FileOffset offset, FileOffset to) {
    if (offset <= 0) return kFirstRecord;
    const FileOffset sync = find_sync(offset, to);
    if (sync < 0) return {0, 0};
    Start start = kFirstRecord;
    return read_sync(sync, start) ? start : kFirstRecord;
}

static void enter(int n, FileOffset offset) {
    fc_fix->fixcmds[n & fixmask] = offset;
    // A cancel record may lead below the oldest command held; a new command overwrites the oldest.
    lowest_held = n < lowest_held ? n : std::max(lowest_held, n - fixmask);
}

static void start_index(const Start &start) {
    fc_fix->fixind = lowest_held = start.number;
    fc_fix->fixcnt = start.offset;
    enter(start.number, start.offset);
}

// The index of the file's tail while it is extended towards the front. The ring is filled at once:
// the numbers are right if those of all sync records agree, as in every file without damage.
struct TailIndex {
    FileOffset size;                 // of the file
    Start start = {-1, 0};           // indexed from here on
    Tally tally = {};                // from start to size
    bool entered = true;             // the numbers agree, so the ring and the next three are right
    std::int64_t number = 0;         // of the command behind the last
    FileOffset clean = kHeaderSize;  // see Scanner
    int recounts = 0;
};

// Extends the index to the earlier `start`. False when counting has to be given up.
static bool extend(TailIndex &index, const Start &start) {
    // A damaged file may need its whole tail counted again each time, which must come to an end.
    static constexpr int kMaxRecounts = 16;
    const bool newest = index.start.offset < 0;
    const FileOffset end = newest ? index.size : index.start.offset;
    const std::int64_t keep =
        newest ? 0 : index.number - fixmask;  // older ones would overwrite newer ones
    FileOffset *const ring = fc_fix->fixcmds;
    Scanner s(start.offset);
    Tally front;
    std::int64_t number = start.number;
    bool withdrawn = false;
    if (number >= keep) ring[number & fixmask] = start.offset;
    scan_file(s, end, [&](int incr, FileOffset pos) {
        front.add(incr);
        number += incr;
        withdrawn |= incr < 0;
        // The command that the index begins with is entered, perhaps further on, where records
        // without a command stand in front of it.
        if (number >= keep && (newest || number != index.start.number))
            ring[number & fixmask] = pos;
    });
    index.entered = index.entered && !withdrawn && number <= kMaxNumber;
    if (newest) {
        index.number = number;
        index.clean = s.clean;
    } else if (s.at_start()) {
        index.entered = index.entered && number == index.start.number;
    } else {
        // What seemed to be a sync record is none when seen from here.
        index.entered = false;
        index.tally = {};
        scan_file(s, index.size, [&front](int incr, FileOffset) { front.add(incr); });
        if (++index.recounts > kMaxRecounts) return false;
    }
    index.tally = joined(front, index.tally);
    index.start = start;
    return true;
}

// Indexes as much of the file's end as brings `fixmax` commands into reach: starts further and
// further from the end, by some bytes for each command still missing, at the first sync record
// there. Each byte is searched and scanned once. False when the ring is to be filled anew, from
// index.start on.
static bool index_tail(TailIndex &index) {
    static constexpr FileOffset kMargin = 8192;
    static constexpr FileOffset kPerCommand = 16;
    std::int64_t missing = fc_fix->fixmax;
    FileOffset offset = index.size - kMargin;
    FileOffset searched = index.size;
    while (missing > 0 || index.start.offset < 0) {
        offset -= kPerCommand * missing + kMargin;
        Start start = hist_nearend(offset, searched);
        searched = offset + 1;
        if (start.number == 0) {
            if (index.start.offset >= 0) continue;  // none before the one that is known
            start = kFirstRecord;
        }
        if (!extend(index, start)) {
            index.start = kFirstRecord;
            return false;
        }
        if (start.offset == kHeaderSize) break;
        missing = fc_fix->fixmax - (index.tally.apply(start.number) - start.number);
    }
    return index.entered;
}

// -1 when the system doesn't tell.
static FileOffset file_size() {
    struct stat st;
    return fstat(fileno(fc_fix->fixfd), &st) == 0 ? st.st_size : -1;
}

void index_open(int mask) {
    fixmask = mask;
    TailIndex index{.size = std::max<FileOffset>(file_size(), 0)};
    if (index_tail(index)) {
        fc_fix->fixind = static_cast<int>(index.number);
        fc_fix->fixcnt = index.clean;
        lowest_held = std::max(index.start.number, fc_fix->fixind - fixmask);
    } else {
        start_index(index.start);
    }
    index_to(kNoLimit);
}

void index_to(FileOffset limit) {
    // Somebody emptied the file: nothing that the ring holds is true any more.
    const FileOffset size = file_size();
    if (size >= 0 && size < fc_fix->fixcnt) start_index(kFirstRecord);
    Scanner s(fc_fix->fixcnt);
    int number = fc_fix->fixind;
    scan_file(s, limit, [&number](int incr, FileOffset pos) {
        number = std::clamp(number + incr, 1, kMaxNumber);
        enter(number, pos);
    });
    fc_fix->fixind = number;
    // An unfinished record is read again from its start when its rest has come: it may be one that
    // another process is just writing.
    fc_fix->fixcnt = s.clean;
    fc_fix->fixline = 0;
    File_tail = {size >= 0 && size < kHeaderSize ? size : s.pos, s.prev, s.skip};
}

int ring_low() { return lowest_held; }

FileOffset ring_start(int n) { return fc_fix->fixcmds[n & fixmask]; }

}  // namespace history

void hist_eof() {
    if (fc_fix == nullptr) return;
    history::heof = 1;
    history::index_to(history::kNoLimit);
    history::heof = 0;
}

FileOffset hist_position(int n) {
    return n >= history::ring_low() && n <= fc_fix->fixind ? history::ring_start(n) : -1;
}
