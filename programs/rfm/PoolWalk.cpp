#include "PoolWalk.h"

#include "Text.h"
#include "rfm_LinkageFormat.h"
#include "rfm_MetadataFormat.h"
#include "rfm_StoredOffset.h"
#include "rfm_StringPoolFormat.h"
#include "rfm_Type.h"

#include <fmt/format.h>

#include <cmath>

namespace rfm_tool
{
namespace
{
constexpr const char* kTextsLost = "texts from here on are out of reach; restore the file from a copy";
constexpr const char* kLayoutsLost =
    "tables of the layouts from here on can't be opened; restore the file from a copy";
constexpr const char* kNoName = "the tables of this layout can't be opened; restore the file from a copy";
constexpr int kShownBytes = 40;

std::string Shown(const std::string& text)
{
    if (text.size() <= kShownBytes) return '"' + OneLine(text) + '"';
    return '"' + OneLine(text.substr(0, kShownBytes)) + "...\"";
}

bool CheckPoolMagic(SpaceBytes& space, std::uint32_t handle, std::uint32_t magic, const char* what,
                    DamageList& damages)
{
    const std::uint32_t found = static_cast<std::uint32_t>(space.Int(0));
    if (space.Length() >= 4 && found == magic) return true;
    damages.Add(
        {handle, space.FileOffset(0), what,
         space.Length() < 4 ? Counted(space.Length(), "byte", "bytes") : fmt::format("0x{:08X}", found),
         fmt::format("0x{:08X}", magic), "the library refuses the file; restore it from a copy"});
    return false;
}
} // namespace

// ---- Strings ----

void StringRecords::Walk(SpaceBytes& space, bool isWhole, DamageList& damages)
{
    if (!CheckPoolMagic(space, rfm_StringPoolHandle, rfm_StringPoolMagic, "mark of the pool of strings",
                        damages))
        return;
    const std::int64_t end = space.Length();
    m_KnownEnd = rfm_StringPoolFirstRecord;
    m_Starts.resize(static_cast<std::size_t>(end / 4 + 1));
    if (end > rfm_MostStringPoolBytes)
        damages.Add({rfm_StringPoolHandle, space.FileOffset(0), "size of the pool of strings",
                     fmt::format("{}", end), fmt::format("at most {}", rfm_MostStringPoolBytes), kTextsLost});
    while (end - m_KnownEnd >= 4)
    {
        const int length = space.Int(m_KnownEnd);
        const std::int64_t left = end - m_KnownEnd;
        if (length < 0 || rfm_StringRecordBytes(length) > left)
        {
            if (isWhole || length < 0)
                damages.Add({rfm_StringPoolHandle, space.FileOffset(m_KnownEnd), "length of a text",
                             fmt::format("{}", length), fmt::format("0 to {}", left - 4), kTextsLost});
            return;
        }
        m_Starts[static_cast<std::size_t>(m_KnownEnd / 4)] = true;
        ++m_Count;
        m_KnownEnd += rfm_StringRecordBytes(length);
    }
    if (m_KnownEnd != end && isWhole)
        damages.Add({rfm_StringPoolHandle, space.FileOffset(m_KnownEnd), "end of the pool of strings",
                     Counted(end - m_KnownEnd, "byte", "bytes") + " behind the last text", "none",
                     kTextsLost});
    m_IsComplete = isWhole;
}

bool StringRecords::IsRecord(std::int64_t offset) const
{
    return offset >= rfm_StringPoolFirstRecord && offset < m_KnownEnd && offset % 4 == 0 &&
           m_Starts[static_cast<std::size_t>(offset / 4)];
}

StringRecords::Answer StringRecords::Ask(double reference) const
{
    if (!rfm_IsStoredOffset(reference)) return Answer::Nothing;
    const std::int64_t offset = rfm_OffsetFromStored(reference);
    if (IsRecord(offset)) return Answer::Record;
    return m_IsComplete || (offset < m_KnownEnd && m_KnownEnd > 0) || offset % 4 != 0 ? Answer::Nothing
                                                                                      : Answer::NobodyKnows;
}

std::string StringRecords::Text(double reference, SpaceBytes& space) const
{
    if (Ask(reference) != Answer::Record) return {};
    const std::int64_t offset = rfm_OffsetFromStored(reference);
    const int length = space.Int(offset);
    return space.Text(offset + 4, length);
}

std::string ReferenceText(double reference)
{
    const bool isPlace = rfm_IsStoredOffset(reference) && reference == std::floor(reference);
    return "a reference to " +
           (isPlace ? NumberText(rfm_OffsetFromStored(reference)) : NumberText(reference));
}

// ---- Layouts ----

int FieldBytes(int type)
{
    switch (type)
    {
    case rfm_TypeInt:
    case rfm_TypeFloat: return 4;
    case rfm_TypeDouble:
    case rfm_TypeHandle:
    case rfm_TypeString: return 8;
    default: return 0;
    }
}

std::int64_t Layout::RowBytes() const
{
    std::int64_t bytes = std::int64_t{WordCount()} * 4;
    for (const int type : fieldTypes) bytes += FieldBytes(type);
    return bytes;
}

const Layout* LayoutRecords::Find(std::int64_t offset) const
{
    const auto found = m_Layouts.find(offset);
    return found == m_Layouts.end() ? nullptr : &found->second;
}

void LayoutRecords::Walk(SpaceBytes& space, bool isWhole, const StringRecords& strings, SpaceBytes& texts,
                         DamageList& damages)
{
    if (!CheckPoolMagic(space, rfm_MetadataPoolHandle, rfm_MetadataPoolMagic, "mark of the pool of layouts",
                        damages))
        return;
    const std::int64_t end = space.Length();
    for (std::int64_t offset = rfm_MetadataFirstRecord; offset < end;)
    {
        const int length = space.Int(offset);
        if (!rfm_IsMetadataLength(length) || length > end - offset)
        {
            if (isWhole || !rfm_IsMetadataLength(length))
                damages.Add({rfm_MetadataPoolHandle, space.FileOffset(offset), "length of a layout",
                             fmt::format("{}", length),
                             fmt::format("12 and 12 for each field, at most {}", end - offset),
                             kLayoutsLost});
            return;
        }
        WalkRecord(space, offset, length, strings, texts, damages);
        offset += length;
    }
    m_IsComplete = isWhole;
}

void LayoutRecords::WalkRecord(SpaceBytes& space, std::int64_t offset, int length,
                               const StringRecords& strings, SpaceBytes& texts, DamageList& damages)
{
    Layout& layout = m_Layouts[offset];
    const auto report = [&](std::int64_t place, const std::string& what, const std::string& found,
                            const std::string& expected) {
        damages.Add({rfm_MetadataPoolHandle, space.FileOffset(place), what, found, expected, kNoName});
    };
    const auto name = [&](std::int64_t place, const std::string& what)
    {
        const double reference = space.Double(place);
        if (strings.Ask(reference) == StringRecords::Answer::Nothing)
            report(place, what, ReferenceText(reference), "the place of a text in the pool of strings");
        return strings.Text(reference, texts);
    };
    layout.name = name(offset + 4, "name of a layout");
    const auto [first, isNew] = m_Names.emplace(layout.name, offset);
    if (!isNew && !layout.name.empty())
        report(offset + 4, "name of a layout", Shown(layout.name), "a name that no other layout has");
    std::string previous;
    for (std::int64_t field = offset + rfm_MetadataHeadBytes; field < offset + length;
         field += rfm_MetadataFieldBytes)
    {
        const int type = space.Int(field);
        layout.fieldTypes.push_back(type);
        if (FieldBytes(type) == 0)
        {
            layout.isSound = false;
            report(field, "type of a field of " + Shown(layout.name), fmt::format("{}", type),
                   "1, 2, 3, 4 or 6");
        }
        const std::string fieldName = name(field + 4, "name of a field of " + Shown(layout.name));
        const bool isFirst = field == offset + rfm_MetadataHeadBytes;
        if (!isFirst && !fieldName.empty() && fieldName <= previous)
            report(field + 4, "name of a field of " + Shown(layout.name), Shown(fieldName),
                   "a name behind " + Shown(previous) + ", in ascending order");
        previous = fieldName;
    }
}
} // namespace rfm_tool
