#include "rfm_DatabaseReprFile.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "nex_Report.h"
#include "omi_Swapper.h"
#include "rfm_Exc.h"
#include "rfm_FileRepr.h"
#include "rfm_HeaderFormat.h"
#include "rfm_SpaceReprFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace
{
constexpr std::string_view kMagic = "TVNR";
constexpr std::string_view kOldMagic = "TVNDFM";
// How often a reader takes the table again because its writer published meanwhile.
constexpr int kMostSettleAttempts = 100;

// What stands in the eight bytes of a header's magic: the application's mark ends at its first NUL.
struct Magic
{
    char bytes[rfm_MagicBytes] = {};
    int read = 0;

    bool IsWhole() const { return read == rfm_MagicBytes; }
    std::string_view All() const { return {bytes, sizeof bytes}; }
    bool IsOurs() const { return All().starts_with(kMagic); }
    bool IsOldFormat() const { return All().starts_with(kOldMagic); }
    bool IsOfApplication(const cow_String& expected) const
    {
        const std::string_view wanted = expected.View().substr(0, rfm_ApplicationMagicBytes);
        const std::string_view stored = All().substr(kMagic.size());
        return wanted.empty() || stored.substr(0, stored.find('\0')) == wanted;
    }
};

Magic ReadMagic(rfm_FileRepr& file)
{
    Magic magic;
    file.Seek(0);
    magic.read = file.ReadUpToEnd(magic.bytes, rfm_MagicBytes);
    return magic;
}

// A number of the header; what a short file lacks counts as zero.
int ReadHeaderInt(rfm_FileRepr& file, int offset)
{
    char bytes[4] = {};
    file.Seek(offset);
    file.ReadUpToEnd(bytes, sizeof bytes);
    return omi_Load<int>(bytes, file.Swapped());
}

cow_String Formatted(const char* format, double value)
{
    char text[80];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(text, sizeof text, format, value);
#pragma GCC diagnostic pop
    return text;
}
} // namespace

rfm_DatabaseReprFile::rfm_DatabaseReprFile(const rfm_File& file)
    : m_File(file),
      m_FileName(file.FileName()),
      m_ReadOnly(file.ReadOnly()),
      m_Strings(*this),
      m_Linkage(std::make_unique<rfm_LinkageList>()),
      m_LinkageBuffer(std::make_unique_for_overwrite<char[]>(rfm_LinkageBlockBytes))
{
}

rfm_DatabaseReprFile::~rfm_DatabaseReprFile()
{
    try
    {
        Close();
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
        if (m_Metadata != nullptr) m_Metadata->Abandon();
    }
    // Before the linkage table and the file go: its buffer stands on both.
    m_Metadata.reset();
}

rfm_FileRepr& rfm_DatabaseReprFile::File() const
{
    if (m_File.IsNull()) ThrowClosed();
    return m_File.Repr();
}

void rfm_DatabaseReprFile::ThrowCorrupt() const { rfm_ThrowCorrupt(m_FileName); }

// ---- Open ----

void rfm_DatabaseReprFile::Open(const cow_String& magic)
{
    CheckMagic(magic);
    const int version = ReadHeaderInt(File(), rfm_VersionOffset);
    if (version < rfm_OldestVersion)
        nex_ThrowText(atr_Message("***ERROR: Wrong MARLEK database file version, %d;  Expected version %d.",
                                  version, rfm_FormatVersion));
    m_FlushCount = ReadFlushCount();
    File().VerifySizeStamp(rfm_SizeStampOffset);
    m_Linkage = ReadSettledLinkage();
    if (!m_ReadOnly) File().RaiseLogicalLength(EndOfAllocations());
    m_Strings.Attach(OpenPool(rfm_StringPoolHandle, rfm_StringPoolMagic,
                              "***ERROR: String space object is not where it belongs."));
    m_Metadata = std::make_unique<rfm_DBMetadata>(
        OpenPool(rfm_MetadataPoolHandle, rfm_MetadataPoolMagic,
                 "***ERROR: Metadata table object is not where it belongs."));
    m_Metadata->Load();
    m_IsOpen = true;
}

void rfm_DatabaseReprFile::CheckMagic(const cow_String& expected)
{
    const Magic magic = ReadMagic(File());
    if (magic.IsOldFormat())
        nex_ThrowText(atr_Message(
            "***ERROR: \"%s\"\nis an old format MARLEK database file.\ndatabase files generated with "
            "an MARLEK analysis \nversion prior to 6.1-1 cannot be opened with \nthe current version "
            "of MARLEK/Viewer. \nPlease rerun the analysis using the current \nMARLEK analysis "
            "version.",
            m_FileName));
    if (!magic.IsOurs())
        nex_ThrowText(atr_Message("***ERROR: \"%s\"  is not an MARLEK database file.", m_FileName));
    if (!magic.IsOfApplication(expected))
        nex_ThrowText(atr_Message("***ERROR: Incorrect magic number in file: \"%s\"  .", m_FileName));
}

int rfm_DatabaseReprFile::ReadFlushCount()
{
    File().Refresh();
    return ReadHeaderInt(File(), rfm_FlushCountOffset);
}

std::unique_ptr<rfm_LinkageBlock> rfm_DatabaseReprFile::ReadLinkageBlock(std::int64_t offset)
{
    File().Seek(offset);
    const int read = File().ReadUpToEnd(m_LinkageBuffer.get(), rfm_LinkageBlockBytes);
    std::fill(m_LinkageBuffer.get() + read, m_LinkageBuffer.get() + rfm_LinkageBlockBytes, '\0');
    auto block = std::make_unique<rfm_LinkageBlock>();
    if (!rfm_DecodeLinkageBlock(m_LinkageBuffer.get(), File().Swapped(), *block)) ThrowCorrupt();
    block->fileOffset = offset;
    return block;
}

// Blocks lie inside the file and not over each other, so a loop ends here at its first step back and the table is never
// larger than the file.
std::unique_ptr<rfm_LinkageList> rfm_DatabaseReprFile::ReadLinkage()
{
    auto list = std::make_unique<rfm_LinkageList>();
    rfm_LinkagePlaces places;
    places.Take(rfm_FirstLinkageBlockOffset);
    list->Append(ReadLinkageBlock(rfm_FirstLinkageBlockOffset));
    for (std::int64_t next = list->Last().entries[0].offset; next != 0; next = list->Last().entries[0].offset)
    {
        const bool outside =
            next < rfm_FirstLinkageBlockOffset || !File().ReachesTo(next + rfm_LinkageBlockBytes);
        if (outside || !places.Take(next)) ThrowCorrupt();
        list->Append(ReadLinkageBlock(next));
    }
    return list;
}

// A writer may publish while its table is being read. The count, looked at again behind the table, says so; then the
// table is read again. A table that doesn't decode may be half written too, so it gets the same second look.
std::unique_ptr<rfm_LinkageList> rfm_DatabaseReprFile::ReadSettledLinkage()
{
    for (int attempt = 1;; ++attempt)
    {
        std::unique_ptr<rfm_LinkageList> list;
        try
        {
            list = ReadLinkage();
        }
        catch (const nex_TextException&)
        {
            if (!m_ReadOnly || attempt >= kMostSettleAttempts) throw;
        }
        const int count = m_ReadOnly ? ReadFlushCount() : m_FlushCount;
        const bool settled = count == m_FlushCount;
        m_FlushCount = count;
        if (list != nullptr && (settled || attempt >= kMostSettleAttempts)) return list;
    }
}

// What is reserved counts, written or not: nothing new may be put there.
utl_FileOffset rfm_DatabaseReprFile::EndOfAllocations() const
{
    std::int64_t end = 0;
    for (std::uint32_t i = 0; i < m_Linkage->Count(); ++i)
    {
        const rfm_LinkageBlock& block = m_Linkage->Block(i);
        end = std::max(end, block.fileOffset + rfm_LinkageBlockBytes);
        for (std::uint32_t slot = 1; slot < block.used; ++slot)
            end = std::max(end, block.entries[slot].offset + block.entries[slot].allocation);
    }
    return end;
}

std::unique_ptr<rfm_SpaceRepr> rfm_DatabaseReprFile::OpenPool(std::uint32_t handle, std::uint32_t magic,
                                                              const char* notThere)
{
    std::unique_ptr<rfm_SpaceRepr> space(OpenSpace(rfm_Handle(handle), -1));
    int first = 0;
    const bool there = space->ReadArray(&first, 1) == 1 && static_cast<std::uint32_t>(first) == magic;
    if (!there) nex_ThrowText(atr_Message(notThere));
    return space;
}

// ---- Create ----

void rfm_DatabaseReprFile::Create(const cow_String& magic, const cow_String& description,
                                  long long creationTime)
{
    Reserve(rfm_HeaderBytes);
    WriteHeader(magic, description, creationTime);
    m_Linkage->Append(NewLinkageBlock());
    m_Strings.Attach(NewPool(rfm_StringPoolMagic));
    // Handle 2 is taken and dropped at once; every database has it so.
    const std::unique_ptr<rfm_SpaceRepr> unused(NewSpace(-1));
    m_Metadata = std::make_unique<rfm_DBMetadata>(NewPool(rfm_MetadataPoolMagic));
    m_IsOpen = true;
}

void rfm_DatabaseReprFile::WriteHeader(const cow_String& magic, const cow_String& description,
                                       long long creationTime)
{
    static constexpr char kZeros[rfm_HeaderBytes] = {};
    static constexpr int kZeroInts[5] = {};
    rfm_FileRepr& file = File();
    // Zeros first: they wipe the stamp that the reservation of the header may have made.
    file.Seek(0);
    file.Write(kZeros, rfm_HeaderBytes);
    file.Seek(0);
    file.WriteFixedString(cow_String(kMagic) + magic.Substr(0, rfm_ApplicationMagicBytes), rfm_MagicBytes);
    file.WriteInt(rfm_FormatVersion);
    file.WriteFixedString(description, rfm_DescriptionBytes);
    file.WriteArray(kZeroInts, 5);
    file.WriteInt(static_cast<int>(static_cast<std::uint32_t>(creationTime)));
}

std::unique_ptr<rfm_SpaceRepr> rfm_DatabaseReprFile::NewPool(std::uint32_t magic)
{
    std::unique_ptr<rfm_SpaceRepr> space(NewSpace(-1));
    space->WriteInt(static_cast<int>(magic));
    return space;
}

// ---- Flush, Snap, Close ----

void rfm_DatabaseReprFile::Flush()
{
    Metadata().Flush();
    m_Strings.Flush();
    if (m_ReadOnly) return;
    OrderWrites();
    WriteDirtyBlocks();
    OrderWrites();
    PublishFlushCount(); // last: a reader takes the count as the mark that table and data belong together
    File().Flush();
}

void rfm_DatabaseReprFile::WriteDirtyBlocks()
{
    for (std::uint32_t i = 0; i < m_Linkage->Count(); ++i)
    {
        rfm_LinkageBlock& block = m_Linkage->Block(i);
        if (!block.dirty) continue;
        block.entries[0].allocation = 0;
        block.entries[0].length = 0;
        const std::uint32_t first = block.firstChanged;
        const std::uint32_t last = block.lastChanged;
        rfm_EncodeLinkageSlots(block, first, last, File().Swapped(), m_LinkageBuffer.get());
        const std::uint32_t start = first * rfm_LinkageEntryBytes;
        const std::uint32_t bytes = (last + 1 - first) * rfm_LinkageEntryBytes;
        WriteAt(block.fileOffset + start, m_LinkageBuffer.get() + start, static_cast<int>(bytes));
        block.SetUnchanged();
    }
}

void rfm_DatabaseReprFile::PublishFlushCount()
{
    // The count of the file wraps as its 32 bits do.
    const int next = static_cast<int>(static_cast<std::uint32_t>(m_FlushCount) + 1U);
    File().Seek(rfm_FlushCountOffset);
    File().WriteInt(next);
    m_FlushCount = next;
}

// kept: the count is stored before the first Length, so that the first Length measures the old table and the second
// gives its cached value: both are equal, and the directory of layouts is not loaded again. The first one stands behind
// the reading, which may find a still newer count.
// Tests: ASnapDoesNotLearnLayoutsThatCameAfterTheOpen, NorDoesASnapDuringWhichTheWriterPublishes.
bool rfm_DatabaseReprFile::Snap()
{
    if (!m_ReadOnly) return false;
    if (File().IsHeldByWriter()) return false;
    const int count = ReadFlushCount();
    if (count == m_FlushCount) return false;
    const int old = std::exchange(m_FlushCount, count);
    std::unique_ptr<rfm_LinkageList> settled;
    try
    {
        settled = ReadSettledLinkage();
    }
    catch (const std::exception&)
    {
        m_FlushCount = old; // the view has not moved: the next Snap tries again
        throw;
    }
    const utl_FileOffset before = m_Metadata->Length();
    m_Linkage = std::move(settled);
    Reshape();
    const utl_FileOffset after = m_Metadata->Length();
    if (before != after) m_Metadata->Load();
    return true;
}

void rfm_DatabaseReprFile::Close()
{
    if (m_IsOpen)
    {
        if (!m_ReadOnly)
        {
            File().Seek(rfm_ReservedOffset);
            File().WriteInt(0);
        }
        Flush();
        if (!m_ReadOnly)
        {
            // A stamp of nothing while the size changes: a crash or a reader in between finds a sound file.
            File().ClearSizeStamp(rfm_SizeStampOffset);
            File().TrimToLength();
            File().WriteSizeStamp(rfm_SizeStampOffset);
            File().Flush();
        }
        m_IsOpen = false;
    }
    m_Metadata.reset();
    m_Strings.Detach();
    m_File = rfm_File();
}

// ---- What can be asked ----

bool rfm_DatabaseReprFile::IsMagic(const rfm_File& file, const cow_String& magic)
{
    const Magic stored = ReadMagic(file.Repr());
    return stored.IsWhole() && stored.IsOurs() && stored.IsOfApplication(magic);
}

long long rfm_DatabaseReprFile::GetCreationTime(const rfm_File& file)
{
    if (ReadHeaderInt(file.Repr(), rfm_VersionOffset) < rfm_FormatVersion) return 0;
    return ReadHeaderInt(file.Repr(), rfm_CreationTimeOffset);
}

void rfm_DatabaseReprFile::SetCreationTime(long long time)
{
    File().Seek(rfm_CreationTimeOffset);
    File().WriteInt(static_cast<int>(static_cast<std::uint32_t>(time)));
}

// The text ends at its first NUL; one of 484 bytes has none.
cow_String rfm_DatabaseReprFile::Description()
{
    File().Seek(rfm_DescriptionOffset);
    const cow_String padded = File().ReadFixedString(rfm_DescriptionBytes);
    return cow_String(padded.View().substr(0, padded.View().find('\0')));
}

rfm_FileStatus::RfmFileStatus rfm_DatabaseReprFile::FileStatus() { return File().CheckStatus(); }
atr_String rfm_DatabaseReprFile::CheckNRDXCache() { return File().CheckCache(); }
void rfm_DatabaseReprFile::ReaderSemaphoreSet() { File().SemaphoreSet(); }
void rfm_DatabaseReprFile::ReaderSemaphoreClear() { File().SemaphoreClear(); }

cow_1DArrayList<cow_String> rfm_DatabaseReprFile::GetObjStatistics(const rfm_Handle& handle)
{
    cow_1DArrayList<cow_String> lines;
    if (!IsValidHandle(handle.Value())) return lines;
    int entries = 0;
    for (std::uint32_t step = handle.Value(); step != 0; step = EntryOf(step).next)
        if (++entries > MostEntries()) ThrowCorrupt();
    lines.Append(cow_String("Linkage_Count=") + cow_String(entries));
    return lines;
}

cow_1DArrayList<cow_String> rfm_DatabaseReprFile::GetDBStatistics()
{
    const double linkage = static_cast<double>(m_Linkage->Count()) * rfm_LinkageBlockBytes;
    cow_1DArrayList<cow_String> lines;
    lines.Append(cow_String("Block 0 Size (bytes)=") + cow_String(rfm_HeaderBytes));
    lines.Append(Formatted("Total Linkage Usage (bytes)=%20.0lf", linkage));
    lines.Append(
        Formatted("Metadata Pool Size (bytes)=%20.0lf", static_cast<double>(Metadata().Length().Value())));
    lines.Append(
        Formatted("String Pool Size (bytes)=%20.0lf", static_cast<double>(m_Strings.NextOffset().Value())));
    lines.Append(cow_String("String Pool Count (number of strings)=") + cow_String(m_Strings.Count()));
    lines.Append(cow_String("String Pool ") + GetObjStatistics(rfm_Handle(rfm_StringPoolHandle)).ConstGet(0));
    return lines;
}

void rfm_DatabaseReprFile::MarkHeadsReachable()
{
    for (std::uint32_t i = 0; i < m_Linkage->Count(); ++i)
        for (std::uint32_t slot = 0; slot < m_Linkage->Block(i).used; ++slot)
        {
            rfm_LinkageEntry& entry = m_Linkage->Block(i).entries[slot];
            entry.reachable = entry.offset != 0;
        }
    // Whatever another entry points to is no head. The end of a chain clears slot 0 of block 0, which is none either.
    for (std::uint32_t i = 0; i < m_Linkage->Count(); ++i)
        for (std::uint32_t slot = 0; slot < m_Linkage->Block(i).used; ++slot)
        {
            const rfm_LinkageEntry& entry = m_Linkage->Block(i).entries[slot];
            if (entry.offset != 0) EntryOf(entry.next).reachable = false;
        }
}

// Walks a chain up to an entry without offset; past its end that leads along entry 0 of each block, whose length is 0.
// `walkedFrom` has, by handle, the head from which an entry was walked, plus 1: what another walk has searched in vain
// is not searched again, or a damaged table whose chains all run into one would take the square of its size.
bool rfm_DatabaseReprFile::FindInChain(std::uint32_t head, std::int64_t target,
                                       std::vector<std::uint32_t>& walkedFrom, double& place)
{
    std::int64_t logical = 0;
    for (std::uint32_t handle = head; EntryOf(handle).offset != 0; handle = EntryOf(handle).next)
    {
        const rfm_LinkageEntry& entry = EntryOf(handle);
        if (entry.offset <= target && target - entry.offset < entry.length)
        {
            place = static_cast<double>(logical + target - entry.offset);
            return true;
        }
        std::uint32_t& walked = walkedFrom[handle];
        if (walked == head + 1) ThrowCorrupt();
        if (walked != 0) return false;
        walked = head + 1;
        if (__builtin_add_overflow(logical, entry.length, &logical)) ThrowCorrupt();
    }
    return false;
}

cow_String rfm_DatabaseReprFile::GetObjectLocationReport(const utl_FileOffset& offset)
{
    MarkHeadsReachable();
    std::vector<std::uint32_t> walkedFrom(static_cast<std::size_t>(MostEntries()));
    for (std::uint32_t i = 0; i < m_Linkage->Count(); ++i)
        for (std::uint32_t slot = 0; slot < m_Linkage->Block(i).used; ++slot)
        {
            if (!m_Linkage->Block(i).entries[slot].reachable) continue;
            const std::uint32_t head = i << rfm_SlotBits | slot;
            double place = 0;
            if (!FindInChain(head, offset.Value(), walkedFrom, place)) continue;
            char text[80];
            std::snprintf(text, sizeof text, "Object: %08x - Offset: %20.0lf", head, place);
            return text;
        }
    return "Object not found.";
}

// A loop has no head, so its entries are not listed.
cow_1DArrayList<rfm_Handle> rfm_DatabaseReprFile::Handles()
{
    MarkHeadsReachable();
    cow_1DArrayList<rfm_Handle> handles;
    for (std::uint32_t i = 0; i < m_Linkage->Count(); ++i)
        for (std::uint32_t slot = 1; slot < m_Linkage->Block(i).used; ++slot)
            if (m_Linkage->Block(i).entries[slot].reachable)
                handles.Append(rfm_Handle(i << rfm_SlotBits | slot));
    return handles;
}

// ---- For the spaces ----

rfm_SpaceRepr* rfm_DatabaseReprFile::OpenSpace(const rfm_Handle& handle, int quantum)
{
    return new rfm_SpaceReprFile(*this, handle, quantum);
}

rfm_SpaceRepr* rfm_DatabaseReprFile::NewSpace(int quantum)
{
    if (m_File.IsNull()) ThrowClosed();
    return new rfm_SpaceReprFile(*this, quantum);
}

// Blocks take their place in the file like extents, wherever its logical end stands.
std::unique_ptr<rfm_LinkageBlock> rfm_DatabaseReprFile::NewLinkageBlock()
{
    if (m_Linkage->Count() >= rfm_MostLinkageBlocks)
        nex_ThrowText(
            atr_Message("***ERROR: No more objects fit in MARLEK database file:\n  %s", m_FileName));
    auto block = std::make_unique<rfm_LinkageBlock>();
    block->fileOffset = FileLength().Value();
    block->dirty = true;
    block->Change(0);
    block->Change(rfm_LinkageBlockEntries - 1); // the whole of it: nothing of it is in the file yet
    Reserve(rfm_LinkageBlockBytes);
    return block;
}

std::uint32_t rfm_DatabaseReprFile::AllocateHandle()
{
    if (m_Linkage->Last().used == rfm_LinkageBlockEntries)
    {
        std::unique_ptr<rfm_LinkageBlock> added = NewLinkageBlock();
        rfm_LinkageBlock& full = m_Linkage->Last();
        full.dirty = true;
        full.Change(0);
        full.entries[0].offset = added->fileOffset;
        full.entries[0].next = m_Linkage->Count() << rfm_SlotBits;
        m_Linkage->Append(std::move(added));
    }
    const std::uint32_t slot = m_Linkage->Last().used;
    rfm_LinkageEntry& entry = m_Linkage->Last().entries[slot];
    // Behind a hole in the table of a damaged file lies an object that must not be taken for free.
    if (entry.offset != 0) ThrowCorrupt();
    // A free slot of such a file may still claim room; without an offset that would lie over the header.
    entry = {};
    m_Linkage->Last().used = slot + 1;
    m_Linkage->Last().Change(slot);
    return (m_Linkage->Count() - 1) << rfm_SlotBits | slot;
}

void rfm_DatabaseReprFile::Reserve(utl_FileOffset amount)
{
    if (File().GrowsBy(amount)) File().ClearSizeStamp(rfm_SizeStampOffset);
    if (File().ExtendBy(amount)) File().WriteSizeStamp(rfm_SizeStampOffset);
}

utl_FileOffset rfm_DatabaseReprFile::FileLength() const { return File().Length(); }
bool rfm_DatabaseReprFile::MayHold(utl_FileOffset end) const { return File().MayHold(end); }

void rfm_DatabaseReprFile::WriteAt(std::int64_t offset, const char* bytes, int count)
{
    File().Seek(offset);
    if (File().Write(bytes, count) != count) nex_ThrowText(atr_Message("***ERROR: Write operation failed."));
}

void rfm_DatabaseReprFile::ReadAt(std::int64_t offset, char* bytes, int count)
{
    File().Seek(offset);
    const int read = File().ReadUpToEnd(bytes, count);
    std::memset(bytes + read, 0, static_cast<std::size_t>(count - read));
}

void rfm_DatabaseReprFile::OrderWrites()
{
    if (!m_File.IsNull()) File().OrderWrites();
}

void rfm_DatabaseReprFile::ForgetKept() { File().ForgetKept(); }

void rfm_DatabaseReprFile::Lengthen(std::uint32_t handle, std::int64_t length)
{
    rfm_LinkageEntry& entry = EntryOf(handle);
    if (length <= entry.length) return;
    entry.length = length;
    MarkDirty(handle);
    if (entry.next != 0) Reshape();
}
