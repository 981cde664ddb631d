#include "NpyFormat.h"

#include "LittleEndian.h"

#include <fmt/format.h>

#include <string_view>

namespace rfm_tool
{
namespace
{
constexpr std::string_view kMagic("\x93NUMPY\x01\x00", 8);
} // namespace

std::string NpyHeader(const char* element, std::int64_t rows, std::int64_t columns)
{
    std::string header(kMagic);
    AppendLittleEndian(header,
                       static_cast<std::uint16_t>(kNpyHeaderBytes - kMagic.size() - sizeof(std::uint16_t)));
    header +=
        fmt::format("{{'descr': '{}', 'fortran_order': False, 'shape': ({}, {}), }}", element, rows, columns);
    header.resize(kNpyHeaderBytes - 1, ' ');
    return header + '\n';
}
} // namespace rfm_tool
