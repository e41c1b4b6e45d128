// text.cpp: see text.h. State is that of one line.
#include "edit/text.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "edit.h"
#include "edit/chars.h"

// State: the line. What is behind its end is left from longer ones.
static genchar Line[kLineUnits];
static int Len = 0;
static int Bytes = 0;       // that the units take
static int Most_units = 0;  // what it may come to
static int Most_bytes = 0;
static int Changed = 0;  // see text_changed

void (*Text_watch)(int at, int taken, const genchar *units, int n) = nullptr;

void text_begin(int units, int bytes) {
    editb.e_inbuf = Line;
    Len = Bytes = Changed = 0;
    Most_units = std::min(units, kLineUnits);
    Most_bytes = bytes;
    Text_watch = nullptr;
}

int text_len() { return Len; }

int text_changed() { return std::exchange(Changed, kLineUnits + 1); }

int text_room() { return std::max(std::min(Most_units - Len, Most_bytes - Bytes), 0); }

static std::size_t size_of(int units) { return static_cast<std::size_t>(units) * sizeof(genchar); }

// The one place where the line changes: `n` units take the place of the `taken` at `at`. `units`
// lies outside of the line.
static bool replace_span(int at, int taken, const genchar *units, int n) {
    const int bytes = Bytes - bytes_of_units(Line + at, taken) + bytes_of_units(units, n);
    if (Len - taken + n > Most_units || (bytes > Most_bytes && bytes > Bytes)) return false;
    if (Text_watch != nullptr) Text_watch(at, taken, units, n);
    Changed = std::min(Changed, at);
    std::memmove(Line + at + n, Line + at + taken, size_of(Len - at - taken));
    if (n > 0) std::memcpy(Line + at, units, size_of(n));
    Len += n - taken;
    Bytes = bytes;
    return true;
}

// Calls replace_span with a copy of `units` where they are part of the line.
static bool replace_safely(int at, int taken, const genchar *units, int n) {
    if (units + n <= Line || units >= Line + kLineUnits) return replace_span(at, taken, units, n);
    static genchar Copy[kLineUnits];
    std::memcpy(Copy, units, size_of(n));
    return replace_span(at, taken, Copy, n);
}

bool text_put(int at, const genchar *units, int n) { return replace_safely(at, 0, units, n); }

void text_take(int at, int n) { (void)replace_span(at, n, nullptr, 0); }

int text_set(const genchar *units, int n) {
    n = std::min(n, Most_units);
    while (n > 0 && bytes_of_units(units, n) > Most_bytes) n--;
    (void)replace_safely(0, Len, units, n);
    return n;
}

bool text_over(int at, const genchar *units, int n) { return replace_safely(at, n, units, n); }

bool text_replace(int at, int taken, const genchar *units, int n) {
    return replace_safely(at, taken, units, n);
}

void text_copy(TextCopy &copy, int at, int n) {
    copy.len = n;
    std::copy_n(Line + at, n, copy.unit);
}

bool text_equals(const TextCopy &copy) {
    return copy.len == Len && std::equal(Line, Line + Len, copy.unit);
}

int text_ahead(int at, int clusters) {
    for (; clusters > 0 && at < Len; clusters--) at = cluster_end(Line, Len, at);
    return at;
}

int text_back(int at, int clusters) {
    for (; clusters > 0 && at > 0; clusters--) at = cluster_before(Line, Len, at);
    return at;
}

int text_clusters(int from, int to) {
    int n = 0;
    for (; from < to; n++) from = cluster_end(Line, Len, from);
    return n;
}
