#include "DatabaseWriter.h"

#include "Failure.h"
#include "NewFile.h"
#include "omi_Swapper.h"
#include "rfm_FileRepr.h"
#include "rfm_LinkageFormat.h"
#include "rfm_StringPoolFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

// How handles stay. The library gives them in ascending order and can't be asked for a certain one. In the old file
// those between two objects went to entries that went on with an object, since nothing else takes one. The new file has
// none of these, because each object is whole before the next one begins. So their handles are used up by spaces
// without content, which a last step hangs behind the unused handle 2, one after the other, where no list of objects
// shows them:
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

std::uint32_t HandleBehind(std::uint32_t handle)
{
    const std::uint32_t next = handle + 1;
    return (next & rfm_SlotMask) == 0 ? next + 1 : next; // slot 0 chains the blocks
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

SpaceWriter::SpaceWriter(rfm_Space space) : m_Space(std::move(space)) { m_Gathered.reserve(kPieceBytes); }

void SpaceWriter::Write(const char* bytes, std::size_t count)
{
    while (count > 0)
    {
        if (m_Gathered.size() == kPieceBytes) Flush();
        const std::size_t taken = std::min(count, kPieceBytes - m_Gathered.size());
        m_Gathered.insert(m_Gathered.end(), bytes, bytes + taken);
        bytes += taken;
        count -= taken;
    }
}

void SpaceWriter::Flush()
{
    if (!m_Gathered.empty()) m_Space.Write(m_Gathered.data(), static_cast<int>(m_Gathered.size()));
    m_Gathered.clear();
}

NewTexts::NewTexts() : m_Bytes(rfm_StringPoolFirstRecord)
{
    omi_Store(m_Bytes.data(), rfm_StringPoolMagic, kSwapped);
}

std::int64_t NewTexts::Add(std::string_view text)
{
    const std::size_t place = m_Bytes.size();
    m_Bytes.resize(place +
                   static_cast<std::size_t>(rfm_StringRecordBytes(static_cast<std::int64_t>(text.size()))));
    omi_Store(m_Bytes.data() + place, static_cast<std::int32_t>(text.size()), kSwapped);
    text.copy(m_Bytes.data() + place + 4, text.size());
    return static_cast<std::int64_t>(place);
}

DatabaseWriter::DatabaseWriter(FileKind kind, const std::string& path, const Heading& heading)
    : m_Path(path),
      m_File(CreateFileOfKind(kind, path)),
      m_Next(rfm_FirstRootHandle)
{
    try
    {
        m_Database =
            rfm_Database::Create(m_File, cow_String(heading.mark), heading.description, heading.created);
    }
    catch (...)
    {
        const QuietStandardError quiet;
        m_File = rfm_File();
        throw;
    }
}

DatabaseWriter::~DatabaseWriter()
{
    const QuietStandardError quiet;
    m_Database = rfm_Database();
    m_File = rfm_File();
}

SpaceWriter DatabaseWriter::Layouts()
{
    return SpaceWriter(m_Database.Space(rfm_Handle(rfm_MetadataPoolHandle), -1));
}

SpaceWriter DatabaseWriter::NewSpace(rfm_Handle handle, const std::string& what)
{
    FillUpTo(handle);
    rfm_Space space = m_Database.Space(-1);
    m_Next = HandleBehind(space.Handle().Value());
    if (space.Handle() != handle)
        throw Failure(ExitUnreadable, what,
                      fmt::format("its copy would get the handle {}", space.Handle().Value()),
                      "`rfm check` tells what is damaged");
    return SpaceWriter(std::move(space));
}

void DatabaseWriter::FillUpTo(rfm_Handle handle)
{
    while (m_Next < handle.Value())
    {
        m_Fillers.push_back(m_Database.Space(-1).Handle().Value());
        m_Next = HandleBehind(m_Fillers.back());
    }
}

// The pool of layouts comes first, while its space is the last in the file and grows where it is; the pool of strings
// last, when all texts are known. In between no handle goes to either of them.
void DatabaseWriter::Close(const NewTexts& texts)
{
    {
        SpaceWriter writer(m_Database.Space(rfm_Handle(rfm_StringPoolHandle), -1));
        writer.Write(texts.Bytes().data(), texts.Bytes().size());
        writer.Flush();
    }
    m_Database.Close();
    m_File = rfm_File();
    HideFillers(m_Path, m_Fillers);
}
} // namespace rfm_tool
