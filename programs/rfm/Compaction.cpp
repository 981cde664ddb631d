#include "Compaction.h"

#include "Failure.h"
#include "NewFile.h"
#include "PoolWalk.h"
#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_FileRepr.h"
#include "rfm_LinkageFormat.h"
#include "rfm_MetadataFormat.h"
#include "rfm_ObjectFormat.h"
#include "rfm_StringPoolFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <vector>

// Every space is copied as bytes into one extent. Two things change on the way: references to texts, since the new pool
// of strings has only those that something refers to; and what fields without data hold, which becomes zero. Layouts
// keep their places in their pool, and objects their handles, so whatever else refers to something stays right.
//
// How handles stay. The library gives them in ascending order and can't be asked for a certain one. In the old file
// those between two objects went to entries that went on with an object, since nothing else takes one. The new file has
// none of these, because each object is whole before the next one begins. So their handles are used up by spaces without
// content, which a last step hangs behind the unused handle 2, one after the other, where no list of objects shows them:
//
//   old file:   4 table --> 6 --> 7       5 array       8 stream
//   new file:   4 table       5 array       8 stream       2 unused --> 6 --> 7
//
// Handles behind the last object are not needed; the pool of strings goes on there, as the last in the file.

namespace rfm_tool
{
namespace
{
constexpr bool kSwapped = omi_Swapper(omi_Swapper::Stored);
constexpr std::size_t kPieceBytes = 262144;
constexpr int kItemHeadBytes = 8;

std::uint32_t HandleBehind(std::uint32_t handle)
{
    const std::uint32_t next = handle + 1;
    return (next & rfm_SlotMask) == 0 ? next + 1 : next; // slot 0 chains the blocks
}

/// The bytes of an object that was found sound, one after the other.
class SpaceReader
{
public:
    SpaceReader(DatabaseFile& file, rfm_Handle handle)
        : m_Path(file.Path()),
          m_Space(file.Database().Space(handle, -1)),
          m_Left(m_Space.Length().Value())
    {
    }
    std::int64_t Left() const noexcept { return m_Left; }
    /// Exactly so many.
    /// Throws: Failure when the object ends before.
    void Read(char* bytes, std::size_t count)
    {
        const int wanted = static_cast<int>(count);
        if (m_Space.Read(bytes, wanted) < wanted)
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

/// Bytes on their way into a space of a new database, in large pieces. What was not flushed is dropped: it belongs to
/// a file that comes to nothing.
class SpaceWriter
{
public:
    explicit SpaceWriter(rfm_Space space) : m_Space(std::move(space)) { m_Gathered.reserve(kPieceBytes); }
    void Write(const char* bytes, std::size_t count)
    {
        if (count > kPieceBytes - m_Gathered.size()) Flush();
        m_Gathered.insert(m_Gathered.end(), bytes, bytes + count);
    }
    void Flush()
    {
        if (!m_Gathered.empty()) m_Space.Write(m_Gathered.data(), static_cast<int>(m_Gathered.size()));
        m_Gathered.clear();
    }
    rfm_Handle Handle() const { return m_Space.Handle(); }

private:
    rfm_Space m_Space;
    std::vector<char> m_Gathered;
};

/// The texts that something refers to, in the order in which they were come by.
class TextPool
{
public:
    explicit TextPool(DatabaseFile& file) : m_Path(file.Path()), m_New(rfm_StringPoolFirstRecord)
    {
        SpaceReader reader(file, rfm_Handle(rfm_StringPoolHandle));
        m_Old.resize(static_cast<std::size_t>(reader.Left()));
        for (std::size_t place = 0; place < m_Old.size();
             place += std::min(kPieceBytes, m_Old.size() - place))
            reader.Read(m_Old.data() + place, std::min(kPieceBytes, m_Old.size() - place));
        omi_Store(m_New.data(), rfm_StringPoolMagic, kSwapped);
    }
    /// Puts the new reference in the place of the old one.
    void Renew(char* reference)
    {
        const double old = omi_Load<double>(reference, kSwapped);
        std::int64_t& renewed = m_References[old];
        if (renewed == 0) renewed = Take(old);
        omi_Store(reference, static_cast<double>(renewed), kSwapped);
    }
    /// What the space of the new pool holds.
    const std::vector<char>& Bytes() const noexcept { return m_New; }

private:
    std::int64_t Take(double old);

    std::string m_Path;
    std::vector<char> m_Old;
    std::vector<char> m_New;
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
    const std::int64_t bytes = rfm_StringRecordBytes(length);
    if (length < 0 || bytes > static_cast<std::int64_t>(m_Old.size() - record)) refuse();
    const std::int64_t place = static_cast<std::int64_t>(m_New.size());
    const auto first = m_Old.begin() + static_cast<std::ptrdiff_t>(record);
    m_New.insert(m_New.end(), first, first + bytes);
    return place;
}

/// The objects of one database on their way into another.
class ObjectCopies
{
public:
    explicit ObjectCopies(DatabaseFile& source) : m_Source(source), m_Texts(source) {}
    void Run(FileKind kind, const std::string& path);
    /// Handles that no object has, ascending.
    const std::vector<std::uint32_t>& Fillers() const noexcept { return m_Fillers; }
    /// Lets go of what could not be written, without a word.
    void Abandon();

private:
    void CopyLayouts();
    void CopyTexts();
    void FillUpTo(rfm_Handle handle);
    void Copy(const Object& object);
    void CopyTable(const Object& object, SpaceReader& reader, SpaceWriter& writer);
    void RenewRow(const std::vector<int>& types, std::vector<char>& row);
    void CopyStrings(SpaceReader& reader, SpaceWriter& writer);
    void CopyItems(SpaceReader& reader, SpaceWriter& writer);

    DatabaseFile& m_Source;
    TextPool m_Texts;
    rfm_File m_File;
    rfm_Database m_Target;
    std::vector<std::uint32_t> m_Fillers;
    std::uint32_t m_Next = rfm_FirstRootHandle; // the handle that comes next
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

// The pool of layouts comes first, while its space is the last in the file and grows where it is; the pool of strings
// last, when all texts are known. In between no handle goes to either of them.
void ObjectCopies::Run(FileKind kind, const std::string& path)
{
    m_File = CreateFileOfKind(kind, path);
    m_Target =
        rfm_Database::Create(m_File, cow_String(m_Source.Header().mark), m_Source.Database().Description(),
                             rfm_Database::GetCreationTime(m_Source.File()));
    CopyLayouts();
    for (const rfm_Handle handle : m_Source.Handles())
    {
        if (handle.Value() <= rfm_MetadataPoolHandle) continue;
        FillUpTo(handle);
        Copy(m_Source.Describe(handle));
    }
    CopyTexts();
    m_Target.Close();
    m_File = rfm_File();
}

void ObjectCopies::Abandon()
{
    const QuietStandardError quiet;
    m_Target = rfm_Database();
    m_File = rfm_File();
}

void ObjectCopies::CopyLayouts()
{
    SpaceReader reader(m_Source, rfm_Handle(rfm_MetadataPoolHandle));
    rfm_Space space = m_Target.Space(rfm_Handle(rfm_MetadataPoolHandle), -1);
    SpaceWriter writer(space);
    CopyHead(reader, writer, rfm_MetadataFirstRecord);
    std::vector<char> record;
    while (reader.Left() > 0)
    {
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
        // A type or a length in front of each name.
        for (std::size_t name = 4; name < record.size(); name += rfm_MetadataFieldBytes)
            m_Texts.Renew(record.data() + name);
        writer.Write(record.data(), record.size());
    }
    writer.Flush();
}

void ObjectCopies::CopyTexts()
{
    rfm_Space space = m_Target.Space(rfm_Handle(rfm_StringPoolHandle), -1);
    const std::vector<char>& bytes = m_Texts.Bytes();
    SpaceWriter writer(space);
    for (std::size_t place = 0; place < bytes.size(); place += std::min(kPieceBytes, bytes.size() - place))
        writer.Write(bytes.data() + place, std::min(kPieceBytes, bytes.size() - place));
    writer.Flush();
}

void ObjectCopies::FillUpTo(rfm_Handle handle)
{
    while (m_Next < handle.Value())
    {
        m_Fillers.push_back(m_Target.Space(-1).Handle().Value());
        m_Next = HandleBehind(m_Fillers.back());
    }
}

void ObjectCopies::Copy(const Object& object)
{
    const std::string what = fmt::format("{}: handle {}", OneLine(m_Source.Path()), object.handle.Value());
    if (!object.damage.empty())
        throw Failure(ExitUnreadable, what, object.damage, "`rfm check` tells what is damaged");
    SpaceReader reader(m_Source, object.handle);
    SpaceWriter writer(m_Target.Space(-1));
    m_Next = HandleBehind(writer.Handle().Value());
    if (writer.Handle() != object.handle)
        throw Failure(ExitUnreadable, what,
                      fmt::format("its copy would get the handle {}", writer.Handle().Value()),
                      "`rfm check` tells what is damaged");
    if (object.kind == Kind::Table) CopyTable(object, reader, writer);
    if (object.kind == Kind::Array && object.elementType == rfm_TypeString) CopyStrings(reader, writer);
    if (object.kind == Kind::Stream) CopyItems(reader, writer);
    CopyRest(reader, writer);
    writer.Flush();
}

void ObjectCopies::CopyTable(const Object& object, SpaceReader& reader, SpaceWriter& writer)
{
    std::vector<int> types;
    for (const auto& [name, field] : m_Source.Database().GetTableMetadata(cow_String(object.layout)).Fields())
        types.push_back(field.type);
    CopyHead(reader, writer, rfm_TableFirstRowOffset);
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

/// The linkage table of a database that is closed.
class LinkageEditor
{
public:
    explicit LinkageEditor(const std::string& path)
        : m_File(rfm_File::Open(path.c_str(), utl_FileAccessUpdate))
    {
        for (std::int64_t block = rfm_FirstLinkageBlockOffset; block != 0; block = EntryAt(block).offset)
            m_Blocks.push_back(block);
    }
    void SetNext(std::uint32_t handle, std::uint32_t next)
    {
        const std::int64_t place =
            m_Blocks[handle >> rfm_SlotBits] + std::int64_t{handle & rfm_SlotMask} * rfm_LinkageEntryBytes;
        rfm_LinkageEntry entry = EntryAt(place);
        entry.next = next;
        char bytes[rfm_LinkageEntryBytes];
        rfm_EncodeLinkageEntry(entry, kSwapped, bytes);
        m_File.Repr().Seek(place);
        m_File.Repr().Write(bytes, sizeof bytes);
    }
    void Flush() { m_File.Repr().Flush(); }

private:
    rfm_LinkageEntry EntryAt(std::int64_t place)
    {
        char bytes[rfm_LinkageEntryBytes] = {};
        m_File.Repr().Seek(place);
        m_File.Repr().Read(bytes, sizeof bytes);
        rfm_LinkageEntry entry;
        rfm_DecodeLinkageEntry(bytes, kSwapped, entry);
        return entry;
    }

    rfm_File m_File;
    std::vector<std::int64_t> m_Blocks;
};

void HideFillers(const std::string& path, const std::vector<std::uint32_t>& fillers)
{
    if (fillers.empty()) return;
    LinkageEditor linkage(path);
    std::uint32_t last = rfm_UnusedHandle;
    for (const std::uint32_t filler : fillers)
    {
        linkage.SetNext(last, filler);
        last = filler;
    }
    linkage.Flush();
}
} // namespace

void WriteCompacted(DatabaseFile& source, FileKind kind, const std::string& path)
{
    ObjectCopies copies(source);
    try
    {
        copies.Run(kind, path);
    }
    catch (...)
    {
        copies.Abandon();
        throw;
    }
    HideFillers(path, copies.Fillers());
}
} // namespace rfm_tool
