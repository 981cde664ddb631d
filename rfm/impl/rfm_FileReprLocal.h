#pragma once

#include "rfm_DBStatusChecker.h"
#include "rfm_FileRepr.h"
#include "utl_File.h"

#include <memory>

/// A plain file on a local or shared disk.
/// Invariant: m_Position is the true position of m_File.
class rfm_FileReprLocal : public rfm_FileRepr
{
public:
    rfm_FileReprLocal(const cow_String& name, utl_FileAccess access, bool flag);

    bool ReadOnly() const override { return m_ReadOnly; }
    void Seek(utl_FileOffset position) override;
    /// Hands over to the operating system what m_File has gathered; nothing is forced to the disk.
    void Flush() override { m_File.Flush(); }
    void Extend(utl_FileOffset delta) override { ExtendBy(delta); }
    int Read(char* buffer, int count) override;
    int Write(const char* buffer, int count) override;
    /// The file grows in steps of 1 MiB: few calls that change its size, and few stamps.
    bool ExtendBy(utl_FileOffset delta) override;
    void TrimToLength() override;
    rfm_FileStatus::RfmFileStatus CheckStatus() override;
    void WriteSizeStamp(int position) override;
    void VerifySizeStamp(int position) override;
    bool GrowsBy(utl_FileOffset delta) const override;
    void ClearSizeStamp(int position) override;
    utl_FileOffset MediumSize() const override { return m_File.FileSize(); }
    void Refresh() override { m_File.Forget(); }
    void ForgetKept() override { m_File.ForgetPages(); }
    void OrderWrites() override { m_File.Flush(); }

private:
    void CheckWritable() const;
    void WriteStampBytes(int position, const char* bytes);

    utl_File m_File;
    std::unique_ptr<rfm_DBStatusChecker> m_Checker; // null for a file that this process created
    bool m_ReadOnly;
    bool m_Flag; // kept for callers that pass it; nothing reads it
};
