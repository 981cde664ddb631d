#pragma once

#include "rfm_DatabaseRepr.h"
#include "rfm_File.h"
#include "rfm_LinkageList.h"
#include "rfm_StringManagerFile.h"

#include <vector>

/// One database in one file.
///
///            Create / Open            Close, or the destructor
///   (made) ----------------> (open) --------------------------> (closed)
///
/// Writable or read-only, as the file was opened; that never changes.
/// Order of writes, which is the file's safety: data go to their extents as they come; a flush writes the pools, then
/// the changed linkage blocks, and last the flush count, by which readers know that the table before it is whole. A
/// writer killed anywhere leaves the file at its last flush: the data that came later lie in extents that no entry
/// of the file's table names.
class rfm_DatabaseReprFile : public rfm_DatabaseRepr
{
public:
    explicit rfm_DatabaseReprFile(const rfm_File& file);
    ~rfm_DatabaseReprFile() override;

    void Open(const cow_String& magic);
    void Create(const cow_String& magic, const cow_String& description, long long creationTime);
    static bool IsMagic(const rfm_File& file, const cow_String& magic);
    static long long GetCreationTime(const rfm_File& file);

    const cow_String& FileName() const override { return m_FileName; }
    cow_String Description() override;
    bool ReadOnly() const override { return m_ReadOnly; }
    void Flush() override;
    bool Snap() override;
    int GetFlushCount() const override { return m_FlushCount; }
    void SetCreationTime(long long time) override;
    rfm_Handle RootTableHandle() override { return rfm_Handle(rfm_FirstRootHandle); }
    rfm_Handle RootTableHandle2() override { return rfm_Handle(rfm_SecondRootHandle); }
    rfm_FileStatus::RfmFileStatus FileStatus() override;
    atr_String CheckNRDXCache() override;
    void ReaderSemaphoreSet() override;
    void ReaderSemaphoreClear() override;
    cow_1DArrayList<cow_String> GetObjStatistics(const rfm_Handle& handle) override;
    cow_1DArrayList<cow_String> GetDBStatistics() override;
    cow_String GetObjectLocationReport(const utl_FileOffset& offset) override;
    rfm_SpaceRepr* OpenSpace(const rfm_Handle& handle, int quantum) override;
    rfm_SpaceRepr* NewSpace(int quantum) override;
    /// Throws when the file refuses; the database is open then, and Close may be tried again.
    void Close() override;
    cow_1DArrayList<rfm_Handle> Handles() override;

    // For the spaces.
    std::uint32_t AllocateHandle();
    rfm_LinkageEntry& EntryOf(std::uint32_t handle)
    {
        rfm_LinkageEntry* entry = m_Linkage->Find(handle);
        if (entry == nullptr) ThrowCorrupt();
        return *entry;
    }
    bool IsValidHandle(std::uint32_t handle) const noexcept { return m_Linkage->IsValid(handle); }
    void MarkDirty(std::uint32_t handle) noexcept
    {
        rfm_LinkageBlock& block = m_Linkage->Block(handle >> rfm_SlotBits);
        block.dirty = true;
        block.Change(handle & rfm_SlotMask);
    }
    /// Moves the logical end of the file by `amount`, and stamps the file's size when it grew.
    void Reserve(utl_FileOffset amount);
    utl_FileOffset FileLength() const;
    /// Whether as much as `end` bytes may ever have been written into the file.
    bool MayHold(utl_FileOffset end) const;
    std::int64_t MostEntries() const noexcept { return m_Linkage->MostEntries(); }
    void WriteAt(std::int64_t offset, const char* bytes, int count);
    /// Bytes that the file lacks read as zero.
    void ReadAt(std::int64_t offset, char* bytes, int count);
    /// What was written before reaches the file before what comes.
    void OrderWrites();
    /// For whoever looks at a mark that tells how new the rest is.
    void ForgetKept();
    /// An extent is in use up to `length` at least.
    void Lengthen(std::uint32_t handle, std::int64_t length);
    /// Changes whenever running sums over a chain may have become wrong.
    std::uint64_t Shape() const noexcept { return m_Shape; }
    void Reshape() noexcept { ++m_Shape; }
    rfm_StringManagerFile& Strings() noexcept { return m_Strings; }

private:
    rfm_FileRepr& File() const;
    [[noreturn]] void ThrowCorrupt() const;
    void CheckMagic(const cow_String& expected);
    int ReadFlushCount();
    std::unique_ptr<rfm_LinkageList> ReadLinkage();
    std::unique_ptr<rfm_LinkageList> ReadSettledLinkage();
    utl_FileOffset EndOfAllocations() const;
    std::unique_ptr<rfm_LinkageBlock> ReadLinkageBlock(std::int64_t offset);
    std::unique_ptr<rfm_SpaceRepr> OpenPool(std::uint32_t handle, std::uint32_t magic, const char* notThere);
    void WriteHeader(const cow_String& magic, const cow_String& description, long long creationTime);
    std::unique_ptr<rfm_SpaceRepr> NewPool(std::uint32_t magic);
    std::unique_ptr<rfm_LinkageBlock> NewLinkageBlock();
    void WriteDirtyBlocks();
    void PublishFlushCount();
    void MarkHeadsReachable();
    bool FindInChain(std::uint32_t head, std::int64_t target, std::vector<std::uint32_t>& walkedFrom,
                     double& place);

    rfm_File m_File;
    cow_String m_FileName;
    bool m_ReadOnly;
    bool m_IsOpen = false;
    rfm_StringManagerFile m_Strings;
    std::unique_ptr<rfm_LinkageList> m_Linkage;
    std::unique_ptr<char[]> m_LinkageBuffer; // every block passes through it: block I/O is not reentrant
    int m_FlushCount = 0;
    std::uint64_t m_Shape = 1;
};
