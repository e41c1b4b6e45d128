// require.h: what the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace fuzz {

// A breach of what the target demands.
inline void require(bool holds) {
    if (!holds) std::abort();
}

// The bytes of an input, taken from its start.
class Input {
public:
    Input() = default;
    Input(const std::uint8_t *data, std::size_t size)
        : rest_(reinterpret_cast<const char *>(data), size) {}
    bool empty() const { return rest_.empty(); }
    // At the end as many as there are.
    std::string_view take(int count) {
        const std::string_view piece = rest_.substr(0, static_cast<std::size_t>(count));
        rest_.remove_prefix(piece.size());
        return piece;
    }
    // 0 at the end.
    int byte() {
        const std::string_view one = take(1);
        return one.empty() ? 0 : static_cast<unsigned char>(one[0]);
    }

private:
    std::string_view rest_;
};

}  // namespace fuzz
