#pragma once

#include "rfm_SpaceRepr.h"
#include "rfm_StringManager.h"
#include "utl_FileOffset.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class rfm_DatabaseReprFile;

/// The string pool of a database, whole in memory: as the bytes of its space, read once, in which the texts are found
/// where they lie. New texts are appended to the same bytes as records; those behind the end of the space are the
/// pending ones, and a flush writes them with one call.
///
/// Two indexes stand on the bytes: one bit per 4 bytes that says where records start, and, made when the first text is
/// written, a hash table from text to record. An open costs no node per string.
/// Texts compare whole, their length included: two that differ behind a NUL are two.
///
/// On a read-only database new texts are private: their writer, in another process, gives the references behind the
/// end of the space to texts of its own. So they are kept apart from the bytes, under references that no file has.
class rfm_StringManagerFile : public rfm_StringManager
{
public:
    explicit rfm_StringManagerFile(rfm_DatabaseReprFile& database);
    ~rfm_StringManagerFile() override;

    /// Takes the pool's space and loads what lies in it.
    void Attach(std::unique_ptr<rfm_SpaceRepr> space);
    void Detach();

    void Flush() override;
    void Neuter(const char* reference, const cow_String& text) override;
    void Decode(const char* source, cow_String* target, int count) override;
    void Encode(char* target, const cow_String* source, int count) override;
    int ReferenceSize() override { return 8; }

    /// Bytes of the pool with all texts that are held. On a writable database that is the reference that the next new
    /// text will take.
    utl_FileOffset NextOffset() const noexcept { return m_NextOffset + m_PrivateBytes; }
    /// How many different texts are held.
    int Count();
    /// Refuses new texts past `bytes` instead of the 2 GiB of the format, so that a test can come to the limit.
    void LimitTo(std::int64_t bytes) noexcept { m_MostBytes = bytes; }

private:
    /// Bytes that grow like a vector's, but aren't cleared first: the pool of a large database is read straight into
    /// them.
    class Bytes
    {
    public:
        ~Bytes();
        Bytes() = default;
        Bytes(const Bytes&) = delete;
        Bytes& operator=(const Bytes&) = delete;
        void Reserve(std::int64_t size);
        char* At(std::int64_t offset) noexcept { return m_Data + offset; }
        const char* At(std::int64_t offset) const noexcept { return m_Data + offset; }

    private:
        void MoveToLargePages(std::size_t capacity);

        char* m_Data = nullptr;
        std::int64_t m_Capacity = 0;
    };
    struct HashSlot
    {
        std::uint32_t hash;
        std::uint32_t record; // offset of the record / 4; 0 means empty
    };
    struct Decoded
    {
        std::int64_t reference = 0;
        cow_String text;
    };
    static constexpr int kDecodedSlots = 1024;
    // Far behind the 2 GiB of any pool, and exact as a double. In steps of 4, as the references of a file are.
    static constexpr std::int64_t kFirstPrivate = std::int64_t{1} << 51;

    void Load();
    std::int64_t MarkRecords(std::int64_t record, std::int64_t loaded, std::int64_t end);
    bool IsRecord(std::int64_t offset) const noexcept;
    void RequireRecord(std::int64_t offset) const;
    std::string_view TextOf(std::int64_t record) const noexcept;
    const cow_String& Fetch(std::int64_t reference);
    std::int64_t Intern(std::string_view text);
    void RequireRoom(std::int64_t bytes) const;
    std::int64_t Append(std::string_view text);
    std::int64_t InternPrivate(std::string_view text);
    const std::string* FindPrivate(std::int64_t reference) const noexcept;
    void BuildIndex();
    HashSlot& SlotOf(std::string_view text, std::uint32_t hash);
    void GrowIndex();
    std::int64_t DecodeReference(const char* reference) const;
    [[noreturn]] void ThrowCorrupt() const;

    rfm_DatabaseReprFile& m_Database;
    std::unique_ptr<rfm_SpaceRepr> m_Space;
    std::int64_t m_NextOffset = 4;
    std::int64_t m_MostBytes;
    Bytes m_Bytes;                           // the pool; index and offset in the space are the same
    std::vector<std::uint64_t> m_RecordBits; // bit n: a record starts at 4 n

    bool m_IsIndexed = false;
    std::vector<HashSlot> m_Index;
    std::size_t m_IndexCount = 0;

    std::deque<std::string> m_PrivateTexts; // in the order of their references; the keys below look into them
    std::unordered_map<std::string_view, std::int64_t> m_PrivateReferences;
    std::int64_t m_PrivateBytes = 0; // what their records would take

    // Rows repeat few texts: a decoded text is handed out again at the cost of a count, where making it anew takes an
    // allocation and a copy.
    std::unique_ptr<Decoded[]> m_Decoded;
};
