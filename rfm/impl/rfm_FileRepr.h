#pragma once

#include "atr_String.h"
#include "rfm_FileStatus.h"
#include "rfm_IO.h"

/// One file under a database, whatever its kind: a stream with a logical size that is reserved ahead of writing.
///
/// Logical size: what the database has reserved; only ExtendBy moves it. Physical size: what the file has on its medium,
/// or the largest end of a write; TrimToLength makes it equal to the logical one at close.
class rfm_FileRepr : public rfm_IO
{
public:
    utl_FileOffset Length() const override { return m_LogicalFileSize; }
    utl_FileOffset Location() const override { return m_Position; }

    virtual utl_FileOffset LogicalLength() const { return m_LogicalFileSize; }
    virtual utl_FileOffset PhysicalLength() const { return m_PhysicalFileSize; }
    /// Reserves `delta` bytes more. True when the file grew on its medium, so that it wants a new size stamp.
    virtual bool ExtendBy(utl_FileOffset delta) = 0;
    virtual void TrimToLength() = 0;
    virtual rfm_FileStatus::RfmFileStatus CheckStatus() { return rfm_FileStatus::RfmFileUnchanged; }
    /// A warning for the user about a cache, or an empty string.
    virtual atr_String CheckCache() { return {}; }
    virtual void WriteSizeStamp(int position);
    virtual void VerifySizeStamp(int position);

    /// Whether ExtendBy would make the file grow on its medium.
    virtual bool GrowsBy(utl_FileOffset delta) const;
    /// Makes the stamp say nothing, so that a crash or a reader between a change of size and the new stamp finds a
    /// stamp that passes.
    virtual void ClearSizeStamp(int position);
    /// What the medium holds now.
    virtual utl_FileOffset MediumSize() const { return m_PhysicalFileSize; }
    /// Whether the medium reaches up to `end`: the bound for every place in the file that the file claims.
    virtual bool ReachesTo(utl_FileOffset end) const { return end <= MediumSize(); }
    /// Whether as much as `end` bytes may ever have been written there: the bound for what is read into memory. A file
    /// that stores nothing for what was only reserved may be far longer.
    virtual bool MayHold(utl_FileOffset end) const { return ReachesTo(end); }
    /// Reads what is there: fewer bytes at the end of the file, none behind it. A back end whose `Read` answers otherwise
    /// gives its own.
    virtual int ReadUpToEnd(char* buffer, int count) { return Read(buffer, count); }
    /// The database in the file reaches up to `end`. Of use where a file may be shorter than what was reserved in it.
    virtual void RaiseLogicalLength(utl_FileOffset end);
    /// Forgets what was read ahead and kept; another process may have written since.
    virtual void Refresh();
    /// Forgets what was kept of reads here and there, for whoever looks at a mark that tells how new the rest is: what
    /// was kept before that look is older than the mark says.
    virtual void ForgetKept();
    /// What was written before reaches the medium before what will be written from now on.
    virtual void OrderWrites();

    const cow_String& FileName() const noexcept { return m_FileName; }
    void SemaphoreSet();
    void SemaphoreClear();
    /// kept: this asks CheckStatus, which uses up a pending "updated": the next FileStatus says "unchanged".
    /// Test: AskingWhetherAWriterHoldsTheFileUsesUpThePendingUpdate.
    bool IsHeldByWriter();

protected:
    explicit rfm_FileRepr(const cow_String& name) : m_FileName(name) {}

    utl_FileOffset m_Position;
    utl_FileOffset m_LogicalFileSize;
    utl_FileOffset m_PhysicalFileSize;
    cow_String m_FileName;
    bool m_SemaphoreHeld = false;
};

/// The directory whose existence tells the readers of `fileName` to wait: ".lsm" in place of an ending ".rdx", behind
/// any other name.
/// kept: "job.rdx" and a database named "job" share "job.lsm". Test: ANameAndItsRdxFormShareTheSemaphore.
cow_String rfm_SemaphorePath(const cow_String& fileName);

/// The size stamp and the size of the file don't agree.
[[noreturn]] void rfm_ThrowBadSizeStamp(const char* sourceName = __builtin_FILE(),
                                        int line = __builtin_LINE());
