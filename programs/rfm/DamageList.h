#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace rfm_tool
{
/// One damage: where, what was found, what was expected, and what can be done.
struct Damage
{
    std::uint32_t handle = 0; // of the object; 0: the file itself
    std::int64_t offset = 0;  // in the file
    std::string what;
    std::string found;
    std::string expected;
    std::string remedy;
    std::int64_t segment = -1; // of a compressed file, where it is one; -1: none

    /// "handle 4, offset 15380: WHAT: found FOUND, expected EXPECTED; REMEDY"; "segment 3, ..." and "file, ..." where no
    /// object is hurt by itself.
    std::string Line() const;
    std::string Json() const;
};

/// The damages of a file. It keeps so many of each object, and so many in all, and counts the rest: a file of nothing
/// but damage must not fill the memory.
class DamageList
{
public:
    static constexpr std::size_t kMostKept = 10000;

    explicit DamageList(std::int64_t mostOfAnObject) : m_MostOfAnObject(mostOfAnObject) {}

    void Add(Damage damage);
    const std::vector<Damage>& Kept() const noexcept { return m_Kept; }
    std::int64_t Count() const noexcept { return m_Count; }

private:
    std::int64_t m_MostOfAnObject;
    std::int64_t m_Count = 0;
    std::map<std::pair<std::uint32_t, std::int64_t>, std::int64_t> m_OfObject; // by handle and segment
    std::vector<Damage> m_Kept;
};
} // namespace rfm_tool
