// image.cpp: see image.h. State is that of one line.
#include "edit/image.h"

#include <algorithm>
#include <climits>

#include "edit.h"
#include "edit/chars.h"
#include "edit/row.h"
#include "edit/text.h"
#include "extended.h"

// State: of each kStep units the first place, as far as they are known: Marks[1] to Marks[Known].
// They hold for the text, cut and start of the row for which they were made.
static constexpr int kStep = 64;
static_assert(kStep > kMostJoined);
static Place Marks[kLineUnits / kStep + 1];
static int Known = 0;
static int Cut = -1;
static int Start = 0;

int image_end() { return Extended != 0 ? INT_MAX : kMaxLine; }

// The end of the cluster at `at`.
static int end_of(const genchar *text, int len, int at) {
    return cluster_end(text, at < Row.cut && Row.cut < len ? Row.cut : len, at);
}

static Place behind(const genchar *text, int len, Place at) {
    const int end = end_of(text, len, at.index);
    return {end, at.column + cluster_shown(text + at.index, end - at.index, at.column).columns};
}

Place image_behind(Place at) { return behind(editb.e_inbuf, text_len(), at); }

// What stands at the unit of a place decides whether one begins there.
static void forget_from(int index) {
    while (Known > 0 && Marks[Known].index >= index) Known--;
}

static void look_for_changes() {
    forget_from(text_changed());
    if (Row.start != Start) Known = 0;
    if (Row.cut != Cut)
        forget_from(std::min(Row.cut, Cut) >= 0 ? std::min(Row.cut, Cut) : std::max(Row.cut, Cut));
    Start = Row.start;
    Cut = Row.cut;
    Marks[0] = {0, Start};
}

// The last place for which `beyond` isn't true, from mark `from` on.
template <typename Beyond>
static Place walk(int from, Beyond beyond) {
    const int len = text_len();
    Place at = Marks[from];
    while (at.index < len && at.column < image_end()) {
        const Place next = image_behind(at);
        if (beyond(next)) break;
        at = next;
        if (at.index >= kStep * (Known + 1) && at.index < kLineUnits) Marks[++Known] = at;
    }
    return at;
}

Place image_place(int index) {
    look_for_changes();
    int from = std::clamp(index / kStep, 0, Known);
    if (from > 0 && Marks[from].index > index) from--;
    return walk(from, [index](Place next) { return next.index > index; });
}

Place image_place_at(int column) {
    look_for_changes();
    int from = Known;
    while (from > 0 && Marks[from].column > column) from--;
    return walk(from, [column](Place next) { return next.column > column; });
}

int e_virt_to_phys(const genchar *virt, int len, genchar *phys, int cur, int poff) {
    genchar *const last = phys + kMaxImage - kMostJoined * kSpelling;
    Place at = {0, poff};
    int column = poff;
    phys += poff;
    while (at.index < len && at.column < kMaxLine && phys < last) {
        const Place next = behind(virt, len, at);
        if (at.index <= cur && cur < next.index)
            column = (opt_flag & kStyleVi) != 0 ? next.column - 1 : at.column;
        for (int i = at.index; i < next.index; i++) {
            if (unit_printable(virt[i]))
                *phys++ = virt[i];
            else
                phys += unit_spelling(virt[i], at.column, phys);
        }
        at = next;
    }
    *phys = 0;
    return column;
}
