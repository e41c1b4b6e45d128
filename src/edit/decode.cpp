// decode.cpp: see decode.h. What a terminal sends for a key, by its grammar:
//
//     ESC [ parameters (30 to 3f) intermediates (20 to 2f) final (40 to 7e)
//     ESC [ digits $                       one terminal family's shifted keys, against the grammar
//     ESC [ [ letter                       function keys of the console
//     ESC [ M and three bytes              the mouse
//     ESC O digits? letter                 the keypad's form
//     ESC ] or P or _ text, BEL or ESC \   answers to questions that programs put to the terminal
//     ESC ESC [ ... and ESC ESC O ...      the same keys with Alt
//
// Once "ESC [" or "ESC O" is there the rest is waited for without a limit, and nothing of it is
// ever text, whether the key is known or not. A byte that can't belong to it ends it and is a key
// itself.
#include "edit/decode.h"

#include <algorithm>
#include <cstring>

#include "edit.h"
#include "edit/chars.h"
#include "edit/decode_internal.h"
#include "wait.h"

using decode::Control;
using decode::find_sequence;
using decode::give_back;
using decode::is_byte;
using decode::key_of;
using decode::read_control;
using decode::take;

static constexpr long kEscapeAlone = 50 * kMillisecond;
static constexpr long kSilence = kPasteSilence;  // ends an answer without an end as well
// Set in a code on the read-ahead stack that is no byte.
static constexpr int kHeld = 1 << 28;
static constexpr char kMarks[2][kMarkLength + 1] = {"\x1b[200~", "\x1b[201~"};
static constexpr int kMostLogged = 64;

// State: chosen once a run.
static bool Bytes = true;
static EscapeKey Usual_escape = EscapeKey::prefix;

// State: what an escape key is to the key being taken. A line may end within that.
static EscapeKey Escape = EscapeKey::prefix;

// State: the paste under way, which outlives a line, and the character, which ends with it.
static bool Pasting = false;
static int Pastes = 0;             // that have begun
static bool After_return = false;  // a newline now belongs to the carriage return before it
static Decoder Character;
static char Mark_begun[kMarkLength];  // the beginning of a mark among keys that pass
static int Mark_len = 0;

// State: the bytes of the key being taken, or taken last.
static unsigned char Log[kMostLogged];
static int Logged = 0;
static bool Taking = false;  // it lacks some

void decode_begin(bool bytes, EscapeKey escape) {
    Bytes = bytes;
    Usual_escape = Escape = escape;
}

void decode_reset() {
    Pasting = After_return = false;
    Character = {};
    Mark_len = 0;
}

void decode_begin_line() {
    Character = {};
    Escape = Usual_escape;
    Taking = false;
}

bool decode_in_paste() { return Pasting; }
int decode_pastes() { return Pastes; }
void decode_silence() { Pasting = false; }

void e_ungetkey(int code) { e_ungetchar(code > 255 ? code | kHeld : code); }

int decode::take(long timeout_ns) {
    const int c = e_getbyte(timeout_ns);
    if (is_byte(c) && Logged < kMostLogged) Log[Logged++] = static_cast<unsigned char>(c);
    return c;
}

void decode::give_back(int c) {
    if (c == kNoKey) return;
    if (is_byte(c) && Logged > 0) Logged--;
    e_ungetchar(c);
}

static int arrow_of(int letter) {
    static constexpr int kArrows[] = {kKeyUp, kKeyDown, kKeyRight, kKeyLeft};
    return letter >= 'A' && letter <= 'D' ? kArrows[letter - 'A'] : 0;
}

// The rule of the byte styles. In the emacs styles the escape key and two more are a unit, an arrow
// key when the last is A to D; in vi style only ESC [ is one, and what it doesn't know is lost.
static int byte_sequence() {
    const int first = e_getchar();
    if (opt_flag == kStyleVi) {
        const int arrow = first == '[' ? arrow_of(e_getchar()) : 0;
        return arrow != 0 ? arrow : kKeyUnknown;
    }
    const int second = e_getchar();
    if (const int arrow = arrow_of(second); arrow != 0) return arrow;
    e_ungetchar(second);
    return kAlt | first;
}

static int byte_key() {
    const int c = e_getchar();
    if (c >= kHeld) return c & ~kHeld;
    return c == kEscape ? byte_sequence() : c;
}

static bool is_plain(const Control &control) {
    return control.kind == '[' && control.count == 0 && control.prefix == 0 && !control.strange;
}

static void begin_paste() {
    Pasting = true;
    Pastes++;
}

static int control_key(char kind) {
    const Control control = read_control(kind);
    if (is_plain(control) && control.final == '[') {
        const char text[] = {'[', '[', static_cast<char>(take(kNoTimeout)), '\0'};
        return find_sequence(text);
    }
    if (is_plain(control) && control.final == 'M') {
        for (int i = 0; i < 3; i++) (void)take(kNoTimeout);
        return kKeyUnknown;
    }
    if (control.final == '~' && control.prefix == 0 && !control.strange && control.count == 1) {
        if (control.value[0] == 200) begin_paste();
        if (control.value[0] == 200 || control.value[0] == 201) return kKeyNothing;
    }
    const int key = key_of(control);
    return key == kEscape && Escape == EscapeKey::prefix ? kKeyUnknown : key;
}

// Whether an answer of the terminal may begin with ESC, `kind` and `c`, which no key does.
static bool begins_answer(int kind, int c) {
    if (kind == ']') return (c >= '0' && c <= '9') || c == 'l' || c == 'L';
    if (kind == 'P') return (c >= '0' && c <= '9') || (c > 0 && std::strchr("!$+=>", c) != nullptr);
    return kind == '_' && c == 'G';
}

// Passes over an answer. A line end, or a second without a byte, ends it as well, so that no text
// is lost for ever behind what only looked like one.
static int pass_answer() {
    for (;;) {
        int c = take(kSilence);
        if (c == kNoKey || c == kBell) return kKeyUnknown;
        if (c == kEscape) {
            c = take(kSilence);
            if (c == '\\') return kKeyUnknown;
            give_back(c);
            c = kEscape;
        } else if (is_byte(c) && c != '\r' && c != '\n') {
            continue;
        }
        give_back(c);
        return kKeyUnknown;
    }
}

static int character(int c);

// What was typed when an escape came; more is waited for as the style wants it.
static int escape_key() {
    const long patience = Escape == EscapeKey::key ? kEscapeAlone : kNoTimeout;
    int c = take(patience);
    if (c == kEscape) {
        const int next = take(patience);
        if (next == '[' || next == 'O') {
            const int key = control_key(static_cast<char>(next));
            return key >= kKeyUnknown ? key : key | kAlt;
        }
        give_back(next);
        if (Escape == EscapeKey::prefix) return kAlt | kEscape;
    }
    if (c == '[' || c == 'O') return control_key(static_cast<char>(c));
    if (c == ']' || c == 'P' || c == '_') {
        const int next = take(patience);
        if (begins_answer(c, next)) return pass_answer();
        give_back(next);
    }
    if (Escape == EscapeKey::prefix && is_byte(c)) return kAlt | character(c);
    if (Escape == EscapeKey::prefix && c >= kHeld) return kAlt | (c & ~kHeld);
    give_back(c);
    return kEscape;
}

// --- Characters ---

// The unit that begins with, or is ended by, the byte `c`. What comes out behind it is pushed back.
static int character(int c) {
    char32_t units[kDecodedUnits];
    int count = decode_byte(Character, c, units);
    while (count == 0) {
        c = take(kNoTimeout);
        if (is_byte(c)) {
            count = decode_byte(Character, c, units);
        } else {
            give_back(c);
            count = decode_end(Character, units);
        }
    }
    for (int i = count - 1; i > 0; i--) {
        // A byte of its own may still begin something.
        const bool byte = units[i] < 0x80;
        const int code = static_cast<int>(units[i]);
        if (byte)
            give_back(code);
        else
            e_ungetkey(Pasting ? code | kPasted : code);
    }
    const int unit = static_cast<int>(units[0]);
    return unit == '\r' ? '\n' : unit;
}

// Behind an escape in a paste: true when the rest of a mark follows, which is no text. What is not
// one is pushed back.
static bool pass_mark() {
    char begun[kMarkLength] = {kEscape};
    for (int len = 1; len < kMarkLength; len++) {
        const int c = take(kSilence);
        const bool fits = c == kMarks[0][len] || c == kMarks[1][len];
        if (!fits) {
            give_back(c);
            for (; len > 1; len--) e_ungetkey(kPasted | begun[len - 1]);
            return false;
        }
        begun[len] = static_cast<char>(c);
    }
    Pasting = std::memcmp(begun, kMarks[1], kMarkLength) != 0;
    return true;
}

static int pasted_key() {
    const int c = take(kSilence);
    if (c == kNoKey) {
        Pasting = false;
        return kKeyNothing;
    }
    if (!is_byte(c)) return c >= kHeld ? c & ~kHeld : c;
    const bool second = After_return && c == '\n';
    After_return = c == '\r';
    if (second || c == 0) return kKeyNothing;
    if (c == kEscape && !decoder_pending(Character))
        return pass_mark() ? kKeyNothing : kPasted | kEscape;
    return kPasted | character(c);
}

static int next_code() {
    if (Pasting) return pasted_key();
    const int c = take(kNoTimeout);
    if (!is_byte(c)) return c >= kHeld ? c & ~kHeld : c;
    if (c == kEscape && !decoder_pending(Character)) return escape_key();
    const int unit = character(c);
    // The same as ESC [ and ESC O, from a terminal that sends eight bits.
    if (unit == 0x9b) return control_key('[');
    if (unit == 0x8f) return control_key('O');
    return unit;
}

int e_getkey() {
    if (Bytes) return byte_key();
    int key = kKeyNothing;
    Taking = true;
    while (key == kKeyNothing) {
        Logged = 0;
        key = next_code();
    }
    Taking = false;
    return key;
}

int e_gettyped() { return Bytes ? e_getchar() : e_getkey(); }

int e_getsequence() { return Bytes ? byte_sequence() : kKeyUnknown; }

bool e_is_text(int code) {
    const int c = code & ~kPasted;
    return c > 0 && c < kKeyBase && (Bytes || code != kEscape);
}

int e_gettext() {
    if (Bytes) return e_getquoted();
    Escape = EscapeKey::key;
    const int key = e_getkey();
    Escape = Usual_escape;
    const bool sequence = key >= kKeyBase && (key & kPasted) == 0;
    if (!sequence || Logged == 0 || Log[0] != kEscape) return key;
    for (int i = Logged - 1; i > 0; i--) e_ungetkey(kPasted | Log[i]);
    return kEscape;
}

int decode_unfinished(char *dst, int room) {
    const int n = Taking ? std::min(Logged, room) : 0;
    std::memcpy(dst, Log, static_cast<std::size_t>(n));
    return n;
}

int decode_bytes_of(int held, char *dst) {
    if (held < 0) return 0;
    if (is_byte(held)) {
        *dst = static_cast<char>(held);
        return 1;
    }
    const int code = held & ~(kHeld | kPasted | kModifiers);
    if (code >= kKeyBase) return 0;
    const char32_t unit = static_cast<char32_t>(code);
    return bytes_from_units(dst, kKeyBytes, &unit, 1);
}

int decode_passed_keys(char *keys, int len) {
    int kept = 0;
    char *const in = keys + Mark_len;
    std::memmove(in, keys, static_cast<std::size_t>(len));
    std::memcpy(keys, Mark_begun, static_cast<std::size_t>(Mark_len));
    len += Mark_len;
    Mark_len = 0;
    for (int i = 0; i < len;) {
        const int left = std::min(len - i, kMarkLength);
        const std::size_t size = static_cast<std::size_t>(left);
        const bool end = std::memcmp(keys + i, kMarks[1], size) == 0;
        const bool start = std::memcmp(keys + i, kMarks[0], size) == 0;
        if ((start || end) && left == kMarkLength) {
            Pasting = start;
            i += kMarkLength;
        } else if (end && Pasting) {
            // Outside of a paste an escape key must not wait.
            std::memcpy(Mark_begun, keys + i, size);
            Mark_len = left;
            break;
        } else {
            keys[kept++] = keys[i++];
        }
    }
    return kept;
}
