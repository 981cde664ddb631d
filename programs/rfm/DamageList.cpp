#include "DamageList.h"

#include "Text.h"

#include <fmt/format.h>

namespace rfm_tool
{
std::string Damage::Line() const
{
    const std::string where = segment >= 0  ? fmt::format("segment {}", segment)
                              : handle == 0 ? "file"
                                            : fmt::format("handle {}", handle);
    return fmt::format("{}, offset {}: {}: found {}, expected {}; {}", where, offset, what, found, expected,
                       remedy);
}

std::string Damage::Json() const
{
    return fmt::format(
        "{{\"handle\":{},{}\"offset\":{},\"what\":{},\"found\":{},\"expected\":{},\"remedy\":{}}}", handle,
        segment < 0 ? "" : fmt::format("\"segment\":{},", segment), offset, TextJson(what), TextJson(found),
        TextJson(expected), TextJson(remedy));
}

void DamageList::Add(Damage damage)
{
    ++m_Count;
    if (m_Kept.size() >= kMostKept || ++m_OfObject[{damage.handle, damage.segment}] > m_MostOfAnObject)
        return;
    m_Kept.push_back(std::move(damage));
}
} // namespace rfm_tool
