// Counts that arrive as int (channels, frames) used as sizes.
#pragma once

#include <cstddef>

namespace vora {

// `n` as a size; a negative count is none.
constexpr std::size_t countOf(int n) {
  return n > 0 ? static_cast<std::size_t>(n) : std::size_t{};
}

} // namespace vora
