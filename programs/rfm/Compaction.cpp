#include "Compaction.h"

#include "DatabaseWriter.h"
#include "Failure.h"
#include "PoolWalk.h"
#include "Progress.h"
#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_LinkageFormat.h"
#include "rfm_MetadataFormat.h"
#include "rfm_ObjectFormat.h"
#include "rfm_StringPoolFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <unordered_map>
#include <vector>

// Every space is copied as bytes into one extent. Two things change on the way: references to texts, since the new pool
// of strings has only those that something refers to; and what fields without data hold, which becomes zero. Layouts
// keep their places in their pool, and objects their handles, so whatever else refers to something stays right. Of a
// selection only the layouts of its tables come along, so that their places change too.

namespace rfm_tool
{
namespace
{
constexpr bool kSwapped = omi_Swapper(omi_Swapper::Stored);
constexpr std::size_t kPieceBytes = 262144;
constexpr int kItemHeadBytes = 8;
constexpr int kTableLayoutOffset = rfm_TableFirstRowOffset - 4;

// What fails here says nothing of the file that is written.
template <class Step> auto ReadingFrom(const std::string& path, const Step& step)
{
    try
    {
        return step();
    }
    catch (const nex_Exception& cause)
    {
        ThrowDamaged(path, cause);
    }
}

/// The bytes of an object that was found sound, one after the other.
class SpaceReader
{
public:
    SpaceReader(DatabaseFile& file, rfm_Handle handle)
        : m_Path(file.Path()),
          m_Space(ReadingFrom(m_Path, [&] { return file.Database().Space(handle, -1); })),
          m_Left(m_Space.Length().Value())
    {
    }
    std::int64_t Left() const noexcept { return m_Left; }
    /// Exactly so many.
    /// Throws: Failure when they can't be read, or the object ends before.
    void Read(char* bytes, std::size_t count)
    {
        const int wanted = static_cast<int>(count);
        if (ReadingFrom(m_Path, [&] { return m_Space.Read(bytes, wanted); }) < wanted)
            throw Failure(ExitUnreadable, OneLine(m_Path), "an object ends in the middle of something",
                          "`rfm check` tells what is damaged");
        m_Left -= wanted;
    }
    /// At most so many, or all that is left.
    std::size_t ReadSome(std::vector<char>& bytes)
    {
        bytes.resize(static_cast<std::size_t>(std::min<std::int64_t>(m_Left, kPieceBytes)));
        if (!bytes.empty()) Read(bytes.data(), bytes.size());
        return bytes.size();
    }

private:
    std::string m_Path;
    rfm_BufferedSpace m_Space;
    std::int64_t m_Left;
};

/// The texts that something refers to, in the order in which they were come by.
class TextPool
{
public:
    explicit TextPool(DatabaseFile& file) : m_Path(file.Path())
    {
        SpaceReader reader(file, rfm_Handle(rfm_StringPoolHandle));
        m_Old.resize(static_cast<std::size_t>(reader.Left()));
        for (std::size_t place = 0; place < m_Old.size();
             place += std::min(kPieceBytes, m_Old.size() - place))
            reader.Read(m_Old.data() + place, std::min(kPieceBytes, m_Old.size() - place));
    }
    /// Puts the new reference in the place of the old one.
    void Renew(char* reference)
    {
        const double old = omi_Load<double>(reference, kSwapped);
        std::int64_t& renewed = m_References[old];
        if (renewed == 0) renewed = Take(old);
        omi_Store(reference, static_cast<double>(renewed), kSwapped);
    }
    const NewTexts& New() const noexcept { return m_New; }

private:
    std::int64_t Take(double old);

    std::string m_Path;
    std::vector<char> m_Old;
    NewTexts m_New;
    std::unordered_map<double, std::int64_t> m_References; // old to new
};

std::int64_t TextPool::Take(double old)
{
    const auto refuse = [&]
    {
        throw Failure(ExitUnreadable, OneLine(m_Path), "a reference leads to no text",
                      "`rfm check` tells what is damaged");
    };
    const double end = static_cast<double>(m_Old.size()) - 4;
    if (!(old >= rfm_StringPoolFirstRecord) || old > end) refuse();
    const std::size_t record = static_cast<std::size_t>(old);
    const std::int64_t length = omi_Load<std::int32_t>(m_Old.data() + record, kSwapped);
    if (length < 0 || rfm_StringRecordBytes(length) > static_cast<std::int64_t>(m_Old.size() - record))
        refuse();
    return m_New.Add({m_Old.data() + record + 4, static_cast<std::size_t>(length)});
}

/// The objects of one database on their way into another.
class ObjectCopies
{
public:
    ObjectCopies(DatabaseFile& source, DatabaseWriter& target, Progress& progress)
        : m_Source(source),
          m_Target(target),
          m_Progress(progress),
          m_Texts(source)
    {
    }
    void Run(const std::vector<Object>& objects, bool hasAllLayouts);

private:
    void CopyLayouts(const std::set<std::int64_t>* wanted);
    std::set<std::int64_t> LayoutsOf(const std::vector<Object>& objects);
    void Copy(const Object& object);
    void CopyTable(const Object& object, SpaceReader& reader, SpaceWriter& writer);
    void RenewRow(const std::vector<int>& types, std::vector<char>& row);
    void CopyStrings(SpaceReader& reader, SpaceWriter& writer);
    void CopyItems(SpaceReader& reader, SpaceWriter& writer);

    DatabaseFile& m_Source;
    DatabaseWriter& m_Target;
    Progress& m_Progress;
    TextPool m_Texts;
    std::unordered_map<int, int> m_LayoutPlaces; // old to new
};

// Every byte of what is left, as it is.
void CopyRest(SpaceReader& reader, SpaceWriter& writer)
{
    std::vector<char> piece;
    while (reader.ReadSome(piece) > 0) writer.Write(piece.data(), piece.size());
}

void CopyHead(SpaceReader& reader, SpaceWriter& writer, int count)
{
    std::vector<char> head(static_cast<std::size_t>(count));
    reader.Read(head.data(), head.size());
    writer.Write(head.data(), head.size());
}

void ObjectCopies::Run(const std::vector<Object>& objects, bool hasAllLayouts)
{
    const std::set<std::int64_t> wanted = LayoutsOf(objects);
    CopyLayouts(hasAllLayouts ? nullptr : &wanted);
    for (const Object& object : objects) Copy(object);
    m_Target.Close(m_Texts.New());
}

std::set<std::int64_t> ObjectCopies::LayoutsOf(const std::vector<Object>& objects)
{
    std::set<std::int64_t> places;
    for (const Object& object : objects)
        if (object.kind == Kind::Table)
            places.insert(m_Source.Database().GetTableMetadataHandle(cow_String(object.layout)).Value());
    return places;
}

// Null wants all of them.
void ObjectCopies::CopyLayouts(const std::set<std::int64_t>* wanted)
{
    SpaceReader reader(m_Source, rfm_Handle(rfm_MetadataPoolHandle));
    SpaceWriter writer = m_Target.Layouts();
    const std::int64_t end = reader.Left();
    CopyHead(reader, writer, rfm_MetadataFirstRecord);
    int newPlace = rfm_MetadataFirstRecord;
    std::vector<char> record;
    while (reader.Left() > 0)
    {
        const std::int64_t oldPlace = end - reader.Left();
        record.resize(rfm_MetadataHeadBytes);
        reader.Read(record.data(), rfm_MetadataHeadBytes);
        const int length = omi_Load<int>(record.data(), kSwapped);
        if (!rfm_IsMetadataLength(length) || length - rfm_MetadataHeadBytes > reader.Left())
            throw Failure(ExitUnreadable, OneLine(m_Source.Path()), "a layout ends in the middle",
                          "`rfm check` tells what is damaged");
        record.resize(static_cast<std::size_t>(length));
        if (length > rfm_MetadataHeadBytes)
            reader.Read(record.data() + rfm_MetadataHeadBytes,
                        static_cast<std::size_t>(length - rfm_MetadataHeadBytes));
        if (wanted != nullptr && !wanted->contains(oldPlace)) continue;
        // A type or a length in front of each name.
        for (std::size_t name = 4; name < record.size(); name += rfm_MetadataFieldBytes)
            m_Texts.Renew(record.data() + name);
        writer.Write(record.data(), record.size());
        m_LayoutPlaces[static_cast<int>(oldPlace)] = newPlace;
        newPlace += length;
    }
    writer.Flush();
}

void ObjectCopies::Copy(const Object& object)
{
    const std::string what = fmt::format("{}: handle {}", OneLine(m_Source.Path()), object.handle.Value());
    if (!object.damage.empty())
        throw Failure(ExitUnreadable, what, object.damage, "`rfm check` tells what is damaged");
    SpaceReader reader(m_Source, object.handle);
    SpaceWriter writer = m_Target.NewSpace(object.handle, what);
    if (object.kind == Kind::Table) CopyTable(object, reader, writer);
    if (object.kind == Kind::Array && object.elementType == rfm_TypeString) CopyStrings(reader, writer);
    if (object.kind == Kind::Stream) CopyItems(reader, writer);
    CopyRest(reader, writer);
    writer.Flush();
    m_Progress.Advance(object.size);
}

void ObjectCopies::CopyTable(const Object& object, SpaceReader& reader, SpaceWriter& writer)
{
    std::vector<int> types;
    for (const auto& [name, field] : m_Source.Database().GetTableMetadata(cow_String(object.layout)).Fields())
        types.push_back(field.type);
    if (reader.Left() == 0) return; // its writer has not flushed it
    char head[rfm_TableFirstRowOffset];
    reader.Read(head, sizeof head);
    char* layout = head + kTableLayoutOffset;
    omi_Store(layout, m_LayoutPlaces.at(omi_Load<int>(layout, kSwapped)), kSwapped);
    writer.Write(head, sizeof head);
    std::vector<char> row(static_cast<std::size_t>(object.rowBytes));
    while (!row.empty() && reader.Left() > 0)
    {
        reader.Read(row.data(), row.size());
        RenewRow(types, row);
        writer.Write(row.data(), row.size());
    }
}

// Presence words, then the fields in ascending order of their names.
void ObjectCopies::RenewRow(const std::vector<int>& types, std::vector<char>& row)
{
    std::size_t place = (types.size() + 31) / 32 * 4;
    for (std::size_t i = 0; i < types.size(); ++i)
    {
        const std::uint32_t word = omi_Load<std::uint32_t>(row.data() + i / 32 * 4, kSwapped);
        const std::size_t bytes = static_cast<std::size_t>(FieldBytes(types[i]));
        if ((word >> (i % 32) & 1U) == 0)
            std::memset(row.data() + place, 0, bytes);
        else if (types[i] == rfm_TypeString)
            m_Texts.Renew(row.data() + place);
        place += bytes;
    }
}

void ObjectCopies::CopyStrings(SpaceReader& reader, SpaceWriter& writer)
{
    CopyHead(reader, writer, rfm_ArrayFirstRowOffset);
    char reference[rfm_StringReferenceBytes];
    while (reader.Left() > 0)
    {
        reader.Read(reference, sizeof reference);
        m_Texts.Renew(reference);
        writer.Write(reference, sizeof reference);
    }
}

// Type and identifier, then the value. A fixed string is as long as its first four characters say: that is how it is
// read.
void ObjectCopies::CopyItems(SpaceReader& reader, SpaceWriter& writer)
{
    CopyHead(reader, writer, rfm_StreamFirstItemOffset);
    std::vector<char> item;
    while (reader.Left() > 0)
    {
        item.resize(kItemHeadBytes + 4);
        reader.Read(item.data(), item.size());
        const int type = omi_Load<int>(item.data(), kSwapped);
        const int first = omi_Load<int>(item.data() + kItemHeadBytes, kSwapped);
        const std::int64_t more = type == rfm_TypeFixedString ? std::max(first, 0) : FieldBytes(type) - 4;
        if (more < 0 || more > reader.Left())
            throw Failure(ExitUnreadable, OneLine(m_Source.Path()), "a stream ends in the middle of an item",
                          "`rfm check` tells what is damaged");
        item.resize(item.size() + static_cast<std::size_t>(more));
        if (more > 0) reader.Read(item.data() + kItemHeadBytes + 4, static_cast<std::size_t>(more));
        if (type == rfm_TypeString) m_Texts.Renew(item.data() + kItemHeadBytes);
        writer.Write(item.data(), item.size());
    }
}

} // namespace

namespace
{
std::vector<Object> ApplicationObjects(DatabaseFile& source)
{
    std::vector<Object> objects;
    for (const rfm_Handle handle : source.Handles())
        if (handle.Value() > rfm_MetadataPoolHandle) objects.push_back(source.Describe(handle));
    return objects;
}

void WriteObjects(DatabaseFile& source, const std::vector<Object>& objects, bool hasAllLayouts, FileKind kind,
                  const std::string& path)
{
    std::int64_t bytes = 0;
    for (const Object& object : objects) bytes += object.size;
    Progress progress(bytes);
    progress.Begin("copying");
    DatabaseWriter target(kind, path,
                          {source.Header().mark, source.Database().Description(),
                           rfm_Database::GetCreationTime(source.File())});
    ObjectCopies(source, target, progress).Run(objects, hasAllLayouts);
}
} // namespace

void WriteCompacted(DatabaseFile& source, FileKind kind, const std::string& path)
{
    WriteObjects(source, ApplicationObjects(source), true, kind, path);
}

void WriteSelected(DatabaseFile& source, const std::vector<Object>& objects, FileKind kind,
                   const std::string& path)
{
    WriteObjects(source, objects, false, kind, path);
}
} // namespace rfm_tool
