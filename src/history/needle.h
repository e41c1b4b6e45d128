// needle.h: the text that commands are searched for, and the quick ways to find it in their bytes.
#pragma once

#include <cstddef>

namespace history {

struct Needle {
    const char *text;
    std::size_t length;  // 1 at least
    bool anywhere;       // else at the start of a command
    std::size_t most;    // bytes that what is found may have
};

// Bytes that were found; `at` is null for none.
struct Hit {
    const unsigned char *at;
    std::size_t length;
};

// The needle for `text`, which is not empty. What it is made of serves one search at a time. `most`
// is 0 where no command can hold it.
Needle needle_of(const char *text, bool anywhere);
// To be called when other bytes, `size` of them, have been read to Block.
void needle_see_block(std::size_t size);
// The needle's first place in the `size` bytes at `data`, which lie in Block.
Hit needle_find(const Needle &needle, const unsigned char *data, std::size_t size);

}  // namespace history
