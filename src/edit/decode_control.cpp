// decode_control.cpp: control sequences of the keyboard, and the keys that they stand for. A new
// sequence is a row of kSequences.
#include <algorithm>
#include <cstring>

#include "edit.h"
#include "edit/decode_internal.h"
#include "wait.h"

namespace decode {

struct Sequence {
    const char *text;  // behind the escape, without parameters that tell modifiers
    int key;
};
static constexpr Sequence kSequences[] = {
    {"[A", kKeyUp},
    {"[B", kKeyDown},
    {"[C", kKeyRight},
    {"[D", kKeyLeft},
    {"[H", kKeyHome},
    {"[F", kKeyEnd},
    {"OA", kKeyUp},
    {"OB", kKeyDown},
    {"OC", kKeyRight},
    {"OD", kKeyLeft},
    {"OH", kKeyHome},
    {"OF", kKeyEnd},
    {"OM", '\n'},
    {"[1~", kKeyHome},
    {"[2~", kKeyInsert},
    {"[3~", kKeyDelete},
    {"[4~", kKeyEnd},
    {"[5~", kKeyPageUp},
    {"[6~", kKeyPageDown},
    {"[7~", kKeyHome},
    {"[8~", kKeyEnd},
    {"[Z", kShift | '\t'},
    {"[a", kShift | kKeyUp},
    {"[b", kShift | kKeyDown},
    {"[c", kShift | kKeyRight},
    {"[d", kShift | kKeyLeft},
    {"Oa", kCtrl | kKeyUp},
    {"Ob", kCtrl | kKeyDown},
    {"Oc", kCtrl | kKeyRight},
    {"Od", kCtrl | kKeyLeft},
    {"OP", kKeyF1},
    {"OQ", kKeyF1 + 1},
    {"OR", kKeyF1 + 2},
    {"OS", kKeyF1 + 3},
    {"[P", kKeyF1},
    {"[Q", kKeyF1 + 1},
    {"[S", kKeyF1 + 3},
    {"[[A", kKeyF1},
    {"[[B", kKeyF1 + 1},
    {"[[C", kKeyF1 + 2},
    {"[[D", kKeyF1 + 3},
    {"[[E", kKeyF1 + 4},
    {"[11~", kKeyF1},
    {"[12~", kKeyF1 + 1},
    {"[13~", kKeyF1 + 2},
    {"[14~", kKeyF1 + 3},
    {"[15~", kKeyF1 + 4},
    {"[17~", kKeyF1 + 5},
    {"[18~", kKeyF1 + 6},
    {"[19~", kKeyF1 + 7},
    {"[20~", kKeyF1 + 8},
    {"[21~", kKeyF1 + 9},
    {"[23~", kKeyF1 + 10},
    {"[24~", kKeyF1 + 11},
};

// Finals that one family of terminals has in place of ~, and what they say was held down.
struct Final {
    char final;
    int modifiers;
};
static constexpr Final kFinals[] = {{'~', 0}, {'$', kShift}, {'^', kCtrl}, {'@', kShift | kCtrl}};

// Modifiers as terminals count them, 1 for none; caps and num lock, which come above, don't matter.
static int modifiers_of(int number) {
    if (number < 2) return 0;
    const int bits = number - 1;
    return ((bits & 1) != 0 ? kShift : 0) | ((bits & 2) != 0 || (bits & 8) != 0 ? kAlt : 0) |
           ((bits & 4) != 0 ? kCtrl : 0);
}

int find_sequence(const char *text) {
    for (const Sequence &sequence : kSequences)
        if (std::strcmp(sequence.text, text) == 0) return sequence.key;
    return kKeyUnknown;
}

// A key that is told by its character.
static int character_key(int c, int modifiers) {
    if (c == '\r' || c == '\n') return '\n';
    if (c == kEscape) return kEscape;
    if (c == 127 || c == '\b') c = editb.e_erase != kNoKey ? editb.e_erase : c;
    const bool letter = (c >= 'a' && c <= 'z') || (c >= '@' && c <= '_');
    if ((modifiers & kCtrl) != 0 && (letter || c == ' ')) {
        c &= 0x1f;
        modifiers &= ~kCtrl;
    }
    if (c >= 32) modifiers &= ~kShift;
    constexpr int kPrivateUse = 0xe000;  // keys without a character are told by these
    if (c <= 0 || (c >= kPrivateUse && c < 0xf900) || c >= kKeyBase) return kKeyUnknown;
    return c | modifiers;
}

// A key told by a number: "ESC [ number ~" with its relatives.
static int numbered_key(const Control &control, int modifiers) {
    for (const Final &final : kFinals) {
        if (final.final != control.final) continue;
        char text[] = "[00~";
        const int number = control.value[0];
        if (number < 0 || number > 99) return kKeyUnknown;
        char *end = text + 1;
        if (number >= 10) *end++ = static_cast<char>('0' + number / 10);
        *end++ = static_cast<char>('0' + number % 10);
        *end++ = '~';
        *end = '\0';
        const int key = find_sequence(text);
        return key == kKeyUnknown ? key : key | modifiers | final.modifiers;
    }
    return kKeyUnknown;
}

int key_of(const Control &control) {
    if (control.final == 0 || control.prefix != 0 || control.strange) return kKeyUnknown;
    if (control.event == 3) return kKeyNothing;  // a key let go
    const int first = control.count > 0 ? control.value[0] : 1;
    const int modifiers = modifiers_of(control.count > 1 ? control.value[1] : 1);
    if (control.final == '~' && first == 27 && control.count > 2)
        return character_key(control.value[2], modifiers);
    if (control.final == 'u' && control.count > 0) return character_key(first, modifiers);
    if (control.count > 0 && std::strchr("~$^@", control.final) != nullptr)
        return numbered_key(control, modifiers);
    const char text[] = {control.kind, control.final, '\0'};
    const int key = find_sequence(text);
    if (key == kKeyUnknown || key == '\n') return key;
    // Old ones tell the modifiers alone.
    return key | modifiers | (control.count == 1 ? modifiers_of(first) : 0);
}

// Takes a byte of the parameters.
static void take_parameter(Control &control, int c) {
    const int last = std::min(control.count, kMostParameters) - 1;
    if (c >= '<') {
        control.prefix = static_cast<char>(c);
    } else if (c == ':') {
        control.event = 0;
    } else if (c == ';') {
        control.event = 1;
        if (control.count == 0) control.value[control.count++] = -1;
        if (control.count < kMostParameters) control.value[control.count] = -1;
        control.count++;
    } else if (control.event != 1) {
        control.event = std::min(control.event * 10 + c - '0', 99);
    } else if (control.count <= kMostParameters) {
        if (control.count == 0) control.value[control.count++] = 0;
        int &value = control.value[std::max(last, 0)];
        value = std::min(std::max(value, 0) * 10 + c - '0', kKeyBase);
    }
}

// Whether `c` ends the sequence, by its grammar or against it.
static bool is_final(const Control &control, int c) {
    if (c >= 0x40 && c <= 0x7e) return true;
    return c == '$' && control.kind == '[' && control.prefix == 0 && control.count == 1;
}

// Reads what stands behind "ESC [" or "ESC O".
Control read_control(char kind) {
    Control control = {kind, 0, 0, 0, {}, 1, false};
    for (;;) {
        const int c = take(kNoTimeout);
        if (is_byte(c) && is_final(control, c)) {
            control.final = static_cast<char>(c);
            return control;
        }
        if (c >= 0x30 && c <= 0x3f) {
            take_parameter(control, c);
        } else if (c >= 0x20 && c <= 0x2f) {
            control.strange = true;
        } else {
            constexpr int kCancel = 24;
            constexpr int kSubstitute = 26;
            if (c != kCancel && c != kSubstitute) give_back(c);
            return control;
        }
    }
}

}  // namespace decode
