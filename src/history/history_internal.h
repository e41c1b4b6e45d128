// history_internal.h: what the parts of the history module share: the numbers of the file format,
// reading in blocks, and the ring of command starts.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>

#include "history.h"

namespace history {

// Bytes read at a time. Far above the longest record this program writes.
inline constexpr std::size_t kBlock = 64 * 1024;

// First byte of the file, and of a cancel record.
inline constexpr int kMagic = 129;
inline constexpr int kCancel = 129;
// First byte of a sync record.
inline constexpr int kSync = 130;
inline constexpr int kFileVersion = 1;
inline constexpr FileOffset kHeaderSize = 2;
inline constexpr FileOffset kSyncSize = 6;
// A command that ends beyond this offset is followed by a sync record.
inline constexpr FileOffset kSyncFrom = 8192;
// hist_locate returns the number behind fixind, so fixind stops one short of what an int holds.
inline constexpr int kMaxNumber = INT_MAX - 1;

// Behind any end of a file.
inline constexpr FileOffset kNoLimit = INT64_MAX;

// Scratch for one block. Its contents last until the next call that reads.
extern unsigned char Block[kBlock];

// Reads `size` bytes at `offset` into `dst`. Returns how many there were; an error counts as the
// end of the file.
std::size_t read_at(FileOffset offset, unsigned char *dst, std::size_t size);

// How many of `left` bytes, 0 or more, go into a block.
constexpr std::size_t piece_of(FileOffset left) {
    return static_cast<std::size_t>(std::min(left, FileOffset{kBlock}));
}

// Where the bytes looked at last end, and what an unfinished record at the end of the file lacks.
struct Tail {
    FileOffset end;  // offset at which the file ended
    int prev;        // its last byte when a record is unfinished, else 0
    int skip;        // bytes of a sync record that are missing in front of its last NUL
};
extern Tail File_tail;

// 1 while hist_eof runs: no sync record is written then.
extern int heof;
// Format of the open file: 0 has sync records of another kind. A file that this run has begun has
// kFileVersion.
extern int hist_version;

// Prepares the index of the file behind fc_fix with a ring of `mask` + 1 entries (a power of two).
// Then indexes the file's last `fixmax` commands.
void index_open(int mask);
// Indexes from fixcnt up to `limit` or the end of the file, whichever comes first.
void index_to(FileOffset limit);

// The commands that the ring holds are those from ring_low() to fixind.
int ring_low();
// Start offset of command `n`, which the ring must hold.
FileOffset ring_start(int n);

}  // namespace history
