#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <string>

namespace rfm_tool
{
/// Puts a number behind what `target` holds, its lowest byte first, on every host.
template <class T> void AppendLittleEndian(std::string& target, T value)
{
    auto bytes = std::bit_cast<std::array<char, sizeof(T)>>(value);
    if constexpr (std::endian::native == std::endian::big) std::reverse(bytes.begin(), bytes.end());
    target.append(bytes.data(), bytes.size());
}
} // namespace rfm_tool
