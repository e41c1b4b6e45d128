// rich_prompt.cpp: see rich_prompt.h. A pure function of the captured output, but for the room in
// which it works.
#include "edit/rich_prompt.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "edit.h"
#include "edit/chars.h"
#include "edit/prompt.h"
#include "edit/sequence.h"
#include "extended.h"
#include "morp_defs.h"

// Highest number of a parameter, and most colour sequences: a cell of the row counts them in a
// byte, those at both ends included.
static constexpr int kHighestNumber = 9999;
static constexpr int kMostColours = 253;

// State: of one call.
static genchar Units[kRichPromptSize];  // of one run of text
static RichPrompt Made;
static char *Out;  // where the text goes on
static const char *Out_end;
static int Colours;
static bool Coloured;  // the last one left some

static bool put(const char *bytes, std::size_t n) {
    const bool fits = n <= static_cast<std::size_t>(Out_end - Out);
    if (fits)
        Out = std::copy_n(bytes, n, Out);
    else
        Made.writable = false;
    return fits;
}

const char *colour_end(const char *escape) { return std::strchr(escape, 'm') + 1; }

bool colour_none(const char *escape) {
    return std::all_of(escape + 2, colour_end(escape) - 1,
                       [](char c) { return c == '0' || c == ';'; });
}

// A control sequence: its numbers, as far as they matter.
struct Control {
    int number[2];  // 0 where none is given
    bool private_mode;
    bool plain;  // of numbers only
    char final;
};

static Control read_control(const char *from, const char *final) {
    Control control = {{0, 0}, *from == '?', true, *final};
    int at = 0;
    for (const char *p = from; p < final; p++) {
        if (is_digit(*p)) {
            if (at < 2)
                control.number[at] = std::min(control.number[at] * 10 + (*p - '0'), kHighestNumber);
        } else if (*p == ';' || *p == ':') {
            at++;
        } else if (p > from || !control.private_mode) {
            control.plain = false;
        }
    }
    return control;
}

static void take_colour(const char *escape, const char *end) {
    if (Dumb_terminal != 0) return;
    if (++Colours > kMostColours) Made.writable = false;
    if (put(escape, static_cast<std::size_t>(end - escape))) Coloured = !colour_none(escape);
}

// One that moves the cursor, or does what isn't known.
static void take_other(const Control &control) {
    Made.writable = false;
    const int by = std::max(control.number[0], 1);
    if (control.final == 'C') Made.columns += by;
    if (control.final == 'D') Made.columns -= by;
    if (control.final == 'G' || control.final == '`') Made.columns = by - 1;
    if (control.final == 'H' || control.final == 'f')
        Made.columns = std::max(control.number[1], 1) - 1;
    Made.columns = std::max(Made.columns, 0);
}

// The control sequence from `escape` to its final byte.
static void take_control(const char *escape, const char *final) {
    const Control control = read_control(escape + 2, final);
    const bool mode = control.private_mode && (control.final == 'h' || control.final == 'l');
    const bool erases = control.final == 'K' || control.final == 'J';
    if (control.final == 'm' && control.plain && !control.private_mode)
        take_colour(escape, final + 1);
    else if (erases && control.plain && (control.number[0] == 0 || Made.columns == 0))
        return;  // only what is not there yet is erased
    else if (!mode)
        take_other(control);
}

// The last byte of the sequence that `escape` begins; nullptr where the output ends in it. A string
// without an end goes up to the next escape.
static const char *sequence_last(const char *escape) {
    Sequence at = Sequence::escape;
    for (const char *p = escape + 1; *p != '\0'; p++) {
        const bool behind_others = at == Sequence::escape && p > escape + 1;
        if (at == Sequence::string_escape && *p != '\\') return p - 2;
        at = sequence_step(at, byte_of(*p));
        if (at == Sequence::none || (behind_others && at != Sequence::escape)) return p;
    }
    return nullptr;
}

// A sequence of an escape, bytes 20 to 2f and its last one.
static void take_plain_escape(const char *escape, const char *last) {
    // Characters of another set would be letters when they are written again; keypad modes are
    // nothing to be seen.
    const bool charset = last > escape + 1 && std::strchr("()*+-./%", escape[1]) != nullptr;
    const bool keypad = last == escape + 1 && (*last == '=' || *last == '>');
    if (!keypad && (!charset || *last == '0')) Made.writable = false;
}

// Takes the sequence. Returns its end.
static const char *take_escape(const char *escape) {
    const char *const last = sequence_last(escape);
    if (last == nullptr) {
        Made.writable = false;
        return escape + std::strlen(escape);
    }
    if (escape[1] == '[')
        take_control(escape, last);
    else if (!sequence_begins_string(escape[1]))
        take_plain_escape(escape, last);
    return last + 1;
}

static void take_tab() {
    const int blanks = 8 - Made.columns % 8;
    for (int i = 0; i < blanks; i++) (void)put(" ", 1);
    Made.columns += blanks;
}

static const char *take_control_byte(const char *p) {
    constexpr char kShiftIn = 0x0f;  // to the usual characters
    if (*p == kEscape) return take_escape(p);
    if (*p == '\t') {
        take_tab();
    } else if (*p == '\b') {
        Made.columns = std::max(Made.columns - 1, 0);
        Made.writable = false;
    } else if (*p != kBell && *p != '\1' && *p != '\2' && *p != kShiftIn) {
        Made.writable = false;
    }
    return p + 1;
}

static bool is_text(char c) { return byte_of(c) >= 32 && c != 127; }

static int columns_of(const Shown &shown) { return shown.spelled ? 1 : shown.columns; }

// The units of a run of text, up to `end`, in Units. Returns their number.
static int read_run(const char *from, const char *end) {
    return units_from_bytes(Units, kRichPromptSize, from, static_cast<int>(end - from));
}

static const char *take_run(const char *from) {
    const char *end = from;
    while (is_text(*end)) end++;
    const int n = read_run(from, end);
    for (int at = 0, to = 0; at < n; at = to) {
        to = cluster_end(Units, n, at);
        const Shown shown = cluster_shown(Units + at, to - at, Made.columns);
        if (shown.spelled) Made.writable = false;
        Made.columns += columns_of(shown);
    }
    (void)put(from, static_cast<std::size_t>(end - from));
    return end;
}

// Leaves `excess` columns out at the start of `text`, and one more for the "<". What is kept moves
// to the left: never beyond what is read.
static void cut_left(char *text, int excess) {
    int dropped = 0;
    Out = text;
    for (const char *p = text; *p != '\0';) {
        if (*p == kEscape) {
            const char *const end = colour_end(p);
            Out = std::copy(p, end, Out);
            p = end;
            continue;
        }
        const char *const end = p + std::strcspn(p, "\033");
        const int n = read_run(p, end);
        for (int at = 0, to = 0; at < n; at = to) {
            to = cluster_end(Units, n, at);
            const int bytes = bytes_of_units(Units + at, to - at);
            if (dropped > excess) {
                Out = std::copy_n(p, bytes, Out);
            } else {
                if (dropped == 0) *Out++ = '<';
                dropped += columns_of(cluster_shown(Units + at, to - at, 0));
            }
            p += bytes;
        }
    }
    Made.columns += 1 - dropped;
    Made.cut = true;
}

RichPrompt rich_prompt(char *dst, const char *captured, int most) {
    constexpr std::string_view kNone = "\033[m";
    Made = {0, true, false, false};
    Out = std::copy(kNone.begin(), kNone.end(), dst);
    Out_end = dst + kRichPromptSize - kNone.size() - 1;
    Colours = 0;
    Coloured = false;
    for (const char *p = captured; *p != '\0';)
        p = is_text(*p) ? take_run(p) : take_control_byte(p);
    if (Coloured)
        Out = std::copy(kNone.begin(), kNone.end(), Out);
    else
        Out = std::copy(dst + kNone.size(), Out, dst);
    *Out = '\0';
    Made.coloured = Coloured && Made.writable;
    if (Made.writable && Made.columns > most) {
        cut_left(dst, Made.columns - most);
        *Out = '\0';
    }
    return Made;
}
