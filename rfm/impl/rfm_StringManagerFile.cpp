#include "rfm_StringManagerFile.h"

#include "atr_Translate.h"
#include "mem_Alloc.h"
#include "nex_Exception.h"
#include "omi_Swapper.h"
#include "rfm_DatabaseReprFile.h"
#include "rfm_Exc.h"
#include "rfm_StoredOffset.h"
#include "rfm_StringPoolFormat.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>

namespace
{
// A piece is walked while it is still in the cache that reading it has filled: 24 MB of pool open in 9 ms instead of 15.
constexpr std::int64_t kLoadPiece = 256 * 1024;
constexpr bool kSwapped = omi_Swapper(omi_Swapper::Stored);
constexpr std::size_t kFirstIndexSlots = 1024;
constexpr std::int64_t kHugePoolBytes = 4 * 1024 * 1024;
constexpr std::size_t kLargePageBytes = 2 * 1024 * 1024;

// A multiplicative hash over 8 bytes at a time: pool texts are short, and the table only needs their low bits mixed.
std::uint32_t HashOf(std::string_view text) noexcept
{
    constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15ULL;
    std::uint64_t hash = text.size() * kFactor;
    const char* bytes = text.data();
    std::size_t left = text.size();
    for (; left >= 8; left -= 8, bytes += 8)
    {
        std::uint64_t word;
        std::memcpy(&word, bytes, 8);
        hash = (hash ^ word) * kFactor;
        hash ^= hash >> 32;
    }
    std::uint64_t tail = 0;
    std::memcpy(&tail, bytes, left);
    hash = (hash ^ tail) * kFactor;
    return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}
} // namespace

rfm_StringManagerFile::Bytes::~Bytes() { mem_Free(m_Data); }

void rfm_StringManagerFile::Bytes::Reserve(std::int64_t size)
{
    if (size <= m_Capacity) return;
    const std::int64_t capacity = std::max<std::int64_t>({size, m_Capacity + m_Capacity / 2, 4096});
    if (capacity < kHugePoolBytes)
        m_Data = static_cast<char*>(mem_Realloc(m_Data, static_cast<std::size_t>(capacity)));
    else
        MoveToLargePages(static_cast<std::size_t>(capacity));
    m_Capacity = capacity;
}

// A large pool asks for large pages: reading 20 MB into new memory would otherwise stop at 5000 page faults.
void rfm_StringManagerFile::Bytes::MoveToLargePages(std::size_t capacity)
{
    const std::size_t rounded = (capacity + kLargePageBytes - 1) / kLargePageBytes * kLargePageBytes;
    char* moved = static_cast<char*>(std::aligned_alloc(kLargePageBytes, rounded));
    if (moved == nullptr) throw std::bad_alloc();
    static_cast<void>(
        ::madvise(moved, rounded, MADV_HUGEPAGE)); // advice: without large pages it works as well
    if (m_Data != nullptr) std::memcpy(moved, m_Data, static_cast<std::size_t>(m_Capacity));
    mem_Free(m_Data);
    m_Data = moved;
}

rfm_StringManagerFile::rfm_StringManagerFile(rfm_DatabaseReprFile& database)
    : m_Database(database),
      m_MostBytes(rfm_MostStringPoolBytes),
      m_Decoded(std::make_unique<Decoded[]>(kDecodedSlots))
{
}

rfm_StringManagerFile::~rfm_StringManagerFile() = default;

void rfm_StringManagerFile::ThrowCorrupt() const { rfm_ThrowCorrupt(m_Database.FileName()); }

void rfm_StringManagerFile::Attach(std::unique_ptr<rfm_SpaceRepr> space)
{
    m_Space = std::move(space);
    m_NextOffset = rfm_StringPoolFirstRecord;
    m_RecordBits.clear();
    m_IsIndexed = false;
    m_PrivateReferences.clear();
    m_PrivateTexts.clear();
    m_PrivateBytes = 0;
    std::fill_n(m_Decoded.get(), kDecodedSlots, Decoded{});
    Load();
}

void rfm_StringManagerFile::Detach() { m_Space.reset(); }

// ---- From the file ----

// Brings in what lies in the space behind what is known. It never goes back: on a writer with pending texts the space
// is shorter than the pool, and lowering m_NextOffset would give two texts one reference.
void rfm_StringManagerFile::Load()
{
    const std::int64_t end = m_Space->Length().Value();
    if (end <= m_NextOffset) return;
    if (!m_Database.MayHold(end)) ThrowCorrupt();
    m_Bytes.Reserve(end);
    // A load that was refused half way may have left marks behind what is known: none may stand for what is there now.
    m_RecordBits.resize(static_cast<std::size_t>(m_NextOffset / 256 + 1));
    m_RecordBits.back() &= (std::uint64_t{1} << (m_NextOffset / 4 % 64)) - 1;
    m_RecordBits.resize(static_cast<std::size_t>(end / 256 + 1));
    m_Space->Seek(m_NextOffset);
    std::int64_t record = m_NextOffset;
    for (std::int64_t place = m_NextOffset; place < end;)
    {
        const int wanted = static_cast<int>(std::min(kLoadPiece, end - place));
        const int read = m_Space->Read(m_Bytes.At(place), wanted);
        if (read < wanted) ThrowCorrupt();
        place += read;
        record = MarkRecords(record, place, end);
    }
    if (record != end) ThrowCorrupt();
    m_NextOffset = end;
    m_IsIndexed = false;
}

// Marks the records from `record` on whose lengths lie before `loaded`; answers the first one that is not marked.
std::int64_t rfm_StringManagerFile::MarkRecords(std::int64_t record, std::int64_t loaded, std::int64_t end)
{
    // Each step waits for the length that the one before has read, so nothing else may stand in that chain: the bits
    // of one word are gathered before they are stored, and numbers are unsigned, to be divided by a shift.
    const char* const bytes = m_Bytes.At(0);
    std::uint64_t place = static_cast<std::uint64_t>(record);
    std::uint64_t word = place / 256;
    std::uint64_t bits = m_RecordBits[word] & ((std::uint64_t{1} << (place / 4 % 64)) - 1);
    const std::uint64_t stop = static_cast<std::uint64_t>(loaded - 4);
    while (place <= stop)
    {
        // A negative length is a huge one here.
        const std::uint64_t length = omi_Load<std::uint32_t>(bytes + place, kSwapped);
        const std::uint64_t next = place + 4 + ((length + 3) & ~std::uint64_t{3});
        if (length > rfm_MostStringPoolBytes || next > static_cast<std::uint64_t>(end)) ThrowCorrupt();
        if (place / 256 != word)
        {
            m_RecordBits[word] = bits;
            word = place / 256;
            bits = 0;
        }
        bits |= std::uint64_t{1} << (place / 4 % 64);
        place = next;
    }
    m_RecordBits[word] = bits;
    return static_cast<std::int64_t>(place);
}

bool rfm_StringManagerFile::IsRecord(std::int64_t offset) const noexcept
{
    if (offset < rfm_StringPoolFirstRecord || offset >= m_NextOffset || offset % 4 != 0) return false;
    return (m_RecordBits[static_cast<std::size_t>(offset / 256)] >> (offset / 4 % 64) & 1) != 0;
}

void rfm_StringManagerFile::RequireRecord(std::int64_t offset) const
{
    if (!IsRecord(offset))
        nex_ThrowText(atr_Message("rfm_StringManagerFile::String - String is not available."));
}

std::string_view rfm_StringManagerFile::TextOf(std::int64_t record) const noexcept
{
    const std::int32_t length = omi_Load<std::int32_t>(m_Bytes.At(record), kSwapped);
    return {m_Bytes.At(record + 4), static_cast<std::size_t>(length)};
}

std::int64_t rfm_StringManagerFile::DecodeReference(const char* reference) const
{
    const double stored = omi_Load<double>(reference, kSwapped);
    if (!rfm_IsStoredOffset(stored)) ThrowCorrupt();
    return rfm_OffsetFromStored(stored);
}

// A reader learns new texts here and nowhere else: what is not held may have come since.
const cow_String& rfm_StringManagerFile::Fetch(std::int64_t reference)
{
    Decoded& slot = m_Decoded[static_cast<std::size_t>(reference / 4) % kDecodedSlots];
    if (slot.reference == reference && reference != 0) return slot.text;
    if (const std::string* text = FindPrivate(reference))
    {
        slot.text = cow_String(std::string_view(*text));
    }
    else
    {
        if (!IsRecord(reference)) Load();
        RequireRecord(reference);
        slot.text = cow_String(TextOf(reference));
    }
    slot.reference = reference;
    return slot.text;
}

void rfm_StringManagerFile::Decode(const char* source, cow_String* target, int count)
{
    for (int i = 0; i < count; ++i, source += rfm_StringReferenceBytes)
        target[i] = Fetch(DecodeReference(source));
}

// ---- New texts ----

void rfm_StringManagerFile::Encode(char* target, const cow_String* source, int count)
{
    for (int i = 0; i < count; ++i, target += rfm_StringReferenceBytes)
        omi_Store(target, static_cast<double>(Intern(source[i].View())), kSwapped);
}

std::int64_t rfm_StringManagerFile::Intern(std::string_view text)
{
    if (!m_IsIndexed) BuildIndex();
    const std::uint32_t hash = HashOf(text);
    HashSlot& slot = SlotOf(text, hash);
    if (slot.record != 0) return std::int64_t{slot.record} * 4;
    if (m_Database.ReadOnly()) return InternPrivate(text);
    const std::int64_t record = Append(text);
    slot = {hash, static_cast<std::uint32_t>(record / 4)};
    if (++m_IndexCount * 2 > m_Index.size()) GrowIndex();
    return record;
}

void rfm_StringManagerFile::RequireRoom(std::int64_t bytes) const
{
    if (bytes > m_MostBytes - NextOffset().Value())
        nex_ThrowText(atr_Message(
            "***ERROR: The string pool of MARLEK database file would pass its limit of 2 GiB:\n  %s",
            m_Database.FileName()));
}

std::int64_t rfm_StringManagerFile::InternPrivate(std::string_view text)
{
    const auto known = m_PrivateReferences.find(text);
    if (known != m_PrivateReferences.end()) return known->second;
    const std::int64_t bytes = rfm_StringRecordBytes(static_cast<std::int64_t>(text.size()));
    RequireRoom(bytes);
    const std::int64_t reference = kFirstPrivate + static_cast<std::int64_t>(m_PrivateTexts.size()) * 4;
    m_PrivateTexts.emplace_back(text);
    m_PrivateReferences.emplace(m_PrivateTexts.back(), reference);
    m_PrivateBytes += bytes;
    return reference;
}

const std::string* rfm_StringManagerFile::FindPrivate(std::int64_t reference) const noexcept
{
    const std::int64_t place = reference - kFirstPrivate;
    if (place < 0 || place % 4 != 0) return nullptr;
    const auto index = static_cast<std::size_t>(place / 4);
    return index < m_PrivateTexts.size() ? &m_PrivateTexts[index] : nullptr;
}

// The record of a new text, behind all others. Nothing is written before the flush.
std::int64_t rfm_StringManagerFile::Append(std::string_view text)
{
    const std::int64_t record = m_NextOffset;
    const std::int64_t bytes = rfm_StringRecordBytes(static_cast<std::int64_t>(text.size()));
    RequireRoom(bytes);
    m_Bytes.Reserve(record + bytes);
    m_RecordBits.resize(static_cast<std::size_t>((record + bytes) / 256 + 1));
    omi_Store(m_Bytes.At(record), static_cast<std::int32_t>(text.size()), kSwapped);
    std::memset(m_Bytes.At(record + bytes - 4), 0, text.empty() ? 0 : 4);
    std::memcpy(m_Bytes.At(record + 4), text.data(), text.size());
    m_RecordBits[static_cast<std::size_t>(record / 256)] |= std::uint64_t{1} << (record / 4 % 64);
    m_NextOffset = record + bytes;
    return record;
}

// The slot of a text, or the empty one where it belongs.
rfm_StringManagerFile::HashSlot& rfm_StringManagerFile::SlotOf(std::string_view text, std::uint32_t hash)
{
    const std::size_t mask = m_Index.size() - 1;
    for (std::size_t place = hash & mask;; place = (place + 1) & mask)
    {
        HashSlot& slot = m_Index[place];
        if (slot.record == 0 || (slot.hash == hash && TextOf(std::int64_t{slot.record} * 4) == text))
            return slot;
    }
}

void rfm_StringManagerFile::GrowIndex()
{
    std::vector<HashSlot> old(std::max(kFirstIndexSlots, m_Index.size() * 2));
    old.swap(m_Index);
    const std::size_t mask = m_Index.size() - 1;
    for (const HashSlot& slot : old)
    {
        if (slot.record == 0) continue;
        std::size_t place = slot.hash & mask;
        while (m_Index[place].record != 0) place = (place + 1) & mask;
        m_Index[place] = slot;
    }
}

// In ascending order, so that of two records with one text, which a neutered pool may hold, the first is found.
void rfm_StringManagerFile::BuildIndex()
{
    m_Index.clear();
    m_IndexCount = 0;
    GrowIndex();
    for (std::int64_t record = rfm_StringPoolFirstRecord; record < m_NextOffset;)
    {
        const std::string_view text = TextOf(record);
        const std::uint32_t hash = HashOf(text);
        HashSlot& slot = SlotOf(text, hash);
        if (slot.record == 0)
        {
            slot = {hash, static_cast<std::uint32_t>(record / 4)};
            if (++m_IndexCount * 2 > m_Index.size()) GrowIndex();
        }
        record += rfm_StringRecordBytes(static_cast<std::int64_t>(text.size()));
    }
    m_IsIndexed = true;
}

int rfm_StringManagerFile::Count()
{
    if (!m_IsIndexed) BuildIndex();
    return static_cast<int>(m_IndexCount + m_PrivateTexts.size());
}

// ---- To the file ----

void rfm_StringManagerFile::Flush()
{
    if (!m_PrivateTexts.empty()) rfm_ThrowReadOnlyDatabase();
    const std::int64_t length = m_Space->Length().Value();
    if (m_NextOffset - length < 1) return;
    m_Space->Seek(length);

    // The pending records must fill what lies between the end of the space and the end of the pool, one after the
    // other: anything else means that somebody changed the space's length beneath the pool.
    std::int64_t cursor = length;
    while (cursor < m_NextOffset && !IsRecord(cursor)) ++cursor;
    if (cursor < m_NextOffset && cursor != length)
        nex_ThrowAssert("cursor - buffer.Get() == offset.DiffAsInt32(spaceLength)");
    while (cursor < m_NextOffset)
        cursor += rfm_StringRecordBytes(omi_Load<std::int32_t>(m_Bytes.At(cursor), kSwapped));
    if (cursor != m_NextOffset || !IsRecord(length))
        nex_ThrowAssert("cursor - buffer.Get() == unwrittenLength");

    try
    {
        m_Space->Write(m_Bytes.At(length), static_cast<int>(m_NextOffset - length));
    }
    catch (...)
    {
        // What an earlier extent took may end inside a record, where no later flush could go on.
        if (m_Space->Length() > length) m_Space->Truncate(length);
        throw;
    }
}

// kept: the pool in memory is not told. This process goes on giving the old text, and the zero bytes behind a
// shortened one are read by the next open as records of empty texts.
// Tests: ANeuterShowsInANewProcessOnly, TheZerosBehindAShortenedTextReadAsEmptyStrings.
void rfm_StringManagerFile::Neuter(const char* reference, const cow_String& text)
{
    Flush();
    const std::int64_t record = DecodeReference(reference);
    RequireRecord(record); // a damaged reference must not have the middle of a text overwritten
    m_Space->Seek(record);
    const int length = m_Space->ReadInt();
    if (length <= 0) return;
    if (length > m_Space->Length().Value() - record - 4) ThrowCorrupt();
    const std::unique_ptr<char[]> block = std::make_unique<char[]>(static_cast<std::size_t>(length));
    const int kept = std::min(length, text.Length());
    std::memcpy(block.get(), text.CString(), static_cast<std::size_t>(kept));
    m_Space->Seek(record);
    m_Space->WriteInt(kept);
    m_Space->Write(block.get(), length);
}
