#include "ObjectWalk.h"

#include "DatabaseFile.h"
#include "Text.h"
#include "rfm_LinkageFormat.h"
#include "rfm_ObjectFormat.h"
#include "rfm_StringPoolFormat.h"

#include <fmt/format.h>

#include <climits>

namespace rfm_tool
{
namespace
{
constexpr const char* kWriteAgain = "write the value again; everything else can be read";
constexpr const char* kRestore = "the object can't be opened; restore the file from a copy";
constexpr const char* kFlushFirst =
    "what is missing reads as zero; the writer must flush the object before the database";
constexpr const char* kStreamEnds = "items from here on are out of reach; write the stream again";

/// The walk of one object, with its damages.
class Walk
{
public:
    Walk(ObjectBytes& object, const Pools& pools, DamageList& damages)
        : m_Handle(object.handle),
          m_IsWhole(object.isWhole),
          m_Bytes(object.bytes),
          m_Pools(pools),
          m_Damages(damages)
    {
    }

    void Table();
    void Array();
    void Stream();

private:
    void Report(std::int64_t place, const std::string& what, const std::string& found,
                const std::string& expected, const char* remedy)
    {
        m_Damages.Add({m_Handle, m_Bytes.FileOffset(place), what, found, expected, remedy});
    }
    bool HasHeader(int bytes);
    const Layout* FindLayout();
    void Row(std::int64_t row, std::int64_t place, const Layout& layout);
    void LastRow(std::int64_t firstRow, std::int64_t rowBytes);
    void Reference(std::int64_t place, const std::string& what);
    std::int64_t Item(std::int64_t item, std::int64_t place);
    std::int64_t ValueBytes(int type, std::int64_t place);

    std::uint32_t m_Handle;
    bool m_IsWhole;
    SpaceBytes& m_Bytes;
    const Pools& m_Pools;
    DamageList& m_Damages;
};

bool Walk::HasHeader(int bytes)
{
    if (m_Bytes.Length() >= bytes) return true;
    if (m_IsWhole)
        Report(0, "header", Counted(m_Bytes.Length(), "byte", "bytes"), Counted(bytes, "byte", "bytes"),
               kRestore);
    return false;
}

// A reference that is there but leads nowhere. One into a part of the pool that can't be read was told of there.
void Walk::Reference(std::int64_t place, const std::string& what)
{
    const double reference = m_Bytes.Double(place);
    if (m_Pools.strings.Ask(reference) == StringRecords::Answer::Nothing)
        Report(place, what, ReferenceText(reference), "the place of a text in the pool of strings",
               kWriteAgain);
}

void Walk::LastRow(std::int64_t firstRow, std::int64_t rowBytes)
{
    const std::int64_t rest = (m_Bytes.Length() - firstRow) % rowBytes;
    if (rest == 0 || !m_IsWhole) return;
    Report(m_Bytes.Length() - rest, "last row", Counted(rest, "byte", "bytes"),
           Counted(rowBytes, "byte", "bytes"), kFlushFirst);
}

// ---- Tables ----

const Layout* Walk::FindLayout()
{
    const int place = m_Bytes.Int(rfm_TableFirstRowOffset - 4);
    const Layout* layout = m_Pools.layouts.Find(place);
    if (layout == nullptr && m_Pools.layouts.IsComplete())
        Report(rfm_TableFirstRowOffset - 4, "layout of the table", fmt::format("{}", place),
               "the place of a layout in its pool", kRestore);
    return layout;
}

void Walk::Table()
{
    if (!HasHeader(rfm_TableFirstRowOffset)) return;
    const Layout* layout = FindLayout();
    if (layout == nullptr || !layout->isSound || layout->fieldTypes.empty()) return;
    const std::int64_t rowBytes = layout->RowBytes();
    if (m_Bytes.Length() > INT_MAX)
        Report(INT_MAX, "size of the table", Counted(m_Bytes.Length(), "byte", "bytes"), "at most 2 GiB",
               "rows behind that are out of reach; write them into a second table");
    const std::int64_t rows = (m_Bytes.Length() - rfm_TableFirstRowOffset) / rowBytes;
    for (std::int64_t row = 0; row < rows; ++row) Row(row, rfm_TableFirstRowOffset + row * rowBytes, *layout);
    LastRow(rfm_TableFirstRowOffset, rowBytes);
}

// Only fields with data are judged: the others keep whatever bytes they had.
void Walk::Row(std::int64_t row, std::int64_t place, const Layout& layout)
{
    const int fields = static_cast<int>(layout.fieldTypes.size());
    std::int64_t fieldPlace = place + std::int64_t{layout.WordCount()} * 4;
    unsigned word = 0;
    for (int field = 0; field < fields; ++field)
    {
        if (field % 32 == 0) word = static_cast<unsigned>(m_Bytes.Int(place + field / 32 * 4));
        const int type = layout.fieldTypes[static_cast<std::size_t>(field)];
        if (type == rfm_TypeString && (word >> (field % 32) & 1U) != 0)
            Reference(fieldPlace, fmt::format("row {}, field {}", row, field));
        fieldPlace += FieldBytes(type);
    }
    const unsigned beyond = fields % 32 == 0 ? 0 : word >> (fields % 32);
    if (beyond != 0)
        Report(place + (layout.WordCount() - 1) * 4, fmt::format("row {}, presence bits", row),
               fmt::format("0x{:08X}", word), fmt::format("none behind those of {} fields", fields),
               "readers ignore them; compare the row with its source, its other bytes may be damaged too");
}

// ---- Arrays ----

void Walk::Array()
{
    if (!HasHeader(rfm_ArrayFirstRowOffset)) return;
    const int type = m_Bytes.Int(rfm_ArrayFirstRowOffset - 8);
    const int columns = m_Bytes.Int(rfm_ArrayFirstRowOffset - 4);
    const int elementBytes = type == rfm_TypeHandle ? 0 : FieldBytes(type);
    if (elementBytes == 0)
        Report(rfm_ArrayFirstRowOffset - 8, "type of the elements", fmt::format("{}", type), "1, 3, 4 or 6",
               kRestore);
    const bool hasNoRows = columns == 0 && m_Bytes.Length() > rfm_ArrayFirstRowOffset;
    if (columns < 0 || hasNoRows)
        Report(rfm_ArrayFirstRowOffset - 4, "elements in a row", fmt::format("{}", columns), "1 or more",
               "readers see no rows; restore the file from a copy");
    if (elementBytes == 0 || columns < 1) return;
    LastRow(rfm_ArrayFirstRowOffset, std::int64_t{elementBytes} * columns);
    if (type != rfm_TypeString) return;
    const std::int64_t elements = (m_Bytes.Length() - rfm_ArrayFirstRowOffset) / elementBytes;
    for (std::int64_t element = 0; element < elements; ++element)
        Reference(rfm_ArrayFirstRowOffset + element * elementBytes,
                  fmt::format("row {}, element {}", element / columns, element % columns));
}

// ---- Streams ----

void Walk::Stream()
{
    if (!HasHeader(rfm_StreamFirstItemOffset)) return;
    std::int64_t place = rfm_StreamFirstItemOffset;
    for (std::int64_t item = 0; place >= 0 && place < m_Bytes.Length(); ++item) place = Item(item, place);
}

// Bytes of the value at `place`; -1 for a type that is none. A fixed string is as long as its first four characters say:
// that is how it is read.
std::int64_t Walk::ValueBytes(int type, std::int64_t place)
{
    if (type != rfm_TypeFixedString) return FieldBytes(type) == 0 ? -1 : FieldBytes(type);
    const std::int64_t length = m_Bytes.Int(place);
    return 4 + (length < 1 ? 0 : length);
}

// The place of the next item, -1 when it can't be known.
std::int64_t Walk::Item(std::int64_t item, std::int64_t place)
{
    constexpr std::int64_t kHeadBytes = 8;
    const int type = m_Bytes.Int(place);
    const std::int64_t left = m_Bytes.Length() - place;
    const std::int64_t valueBytes = ValueBytes(type, place + kHeadBytes);
    const std::string name = fmt::format("item {}", item);
    if (left >= 4 && valueBytes < 0)
    {
        Report(place, name + ", type", fmt::format("{}", type), "1, 2, 3, 4, 6 or 7", kStreamEnds);
        return -1;
    }
    if (left < kHeadBytes + valueBytes)
    {
        if (m_IsWhole)
            Report(place, name, Counted(left, "byte", "bytes"),
                   Counted(kHeadBytes + valueBytes, "byte", "bytes"), kStreamEnds);
        return -1;
    }
    if (type == rfm_TypeString) Reference(place + kHeadBytes, name);
    return place + kHeadBytes + valueBytes;
}
} // namespace

void WalkObject(ObjectBytes& object, const Pools& pools, DamageList& damages)
{
    if (object.bytes.Length() < 4) return;
    Walk walk(object, pools, damages);
    switch (static_cast<std::uint32_t>(object.bytes.Int(0)))
    {
    case rfm_TableMagic: return walk.Table();
    case rfm_ArrayMagic: return walk.Array();
    case rfm_TaggedStreamMagic: return walk.Stream();
    default: return;
    }
}
} // namespace rfm_tool
