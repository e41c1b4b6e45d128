// screen_fuzz.cpp: the map from a line to the columns that show it, against a byte-wise model, for
// both styles, from any index and column on.
#include <algorithm>
#include <cstring>
#include <memory>

#include "edit.h"
#include "editor_run.h"
#include "pass.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 4) return 0;
    std::string line(reinterpret_cast<const char *>(data) + 4,
                     std::min<std::size_t>(size - 4, kMaxLine - 1));
    line.resize(std::strlen(line.c_str()));
    const int len = static_cast<int>(line.size());
    const int from = data[1] % (len + 1);
    const int at = data[2];
    const int cursor = data[3] - 1;
    opt_flag = (data[0] & 1) != 0 ? kStyleVi : kStyleEmacs;

    // On the heap, so that a byte too many is seen.
    const auto virt = std::make_unique<genchar[]>(line.size() + 1);
    const auto phys = std::make_unique<genchar[]>(kMaxImage);
    std::memcpy(virt.get(), line.c_str(), line.size() + 1);
    std::memset(phys.get(), ' ', static_cast<std::size_t>(at));
    const int got = e_virt_to_phys(virt.get(), phys.get(), cursor, from, at);

    int first = -1;
    int behind = -1;
    const std::string_view shown = std::string_view(line).substr(static_cast<std::size_t>(from));
    fuzz::require(fuzz::image_of(shown, at, cursor - from, first, behind) == phys.get());
    const int column = opt_flag == kStyleVi ? behind - 1 : first;
    fuzz::require(got == (first >= 0 ? column : at));
    return 0;
}
