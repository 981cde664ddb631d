#include "rfm_FileReprLocal.h"

#include "atr_Translate.h"
#include "rfm_FileException.h"
#include "rfm_HeaderFormat.h"

#include <algorithm>

namespace
{
constexpr std::int64_t kGrowthStep = 1048576;
constexpr int kStampAttempts = 5;

utl_FileOffset RoundedUp(utl_FileOffset size)
{
    return (size + (kGrowthStep - 1)).Value() / kGrowthStep * kGrowthStep;
}
} // namespace

rfm_FileReprLocal::rfm_FileReprLocal(const cow_String& name, utl_FileAccess access, bool flag)
    : rfm_FileRepr(name),
      m_ReadOnly(access == utl_FileAccessRead),
      m_Flag(flag)
{
    static_cast<void>(m_Flag);
    // The checker first: of a file that is replaced in between, the new one is read and told as replaced. The other way
    // round the old one would be read, and never told.
    if (access != utl_FileAccessCreate) m_Checker = std::make_unique<rfm_DBStatusCheckerFileLocal>(name);
    m_File.Open(name, access, 0);
    m_File.SetKeepsPages(true);
    if (access == utl_FileAccessCreate) return;
    m_LogicalFileSize = m_PhysicalFileSize = m_File.FileSize();
}

void rfm_FileReprLocal::CheckWritable() const
{
    if (m_ReadOnly) rfm_FileReadOnlyExc(m_FileName).Throw(__FILE__, __LINE__);
}

void rfm_FileReprLocal::Seek(utl_FileOffset position)
{
    if (position == m_Position) return;
    m_File.Seek(position);
    m_Position = position;
}

int rfm_FileReprLocal::Read(char* buffer, int count)
{
    if (buffer == nullptr || count < 0)
        rfm_FileBadParameterExc("rfm_FileReprLocal::Read").Throw(__FILE__, __LINE__);
    const int read = m_File.Read(buffer, count);
    m_Position = m_Position.Value() + read;
    return read;
}

int rfm_FileReprLocal::Write(const char* buffer, int count)
{
    if (buffer == nullptr || count < 0)
        rfm_FileBadParameterExc("rfm_FileReprLocal::Write").Throw(__FILE__, __LINE__);
    CheckWritable();
    const int written = m_File.Write(buffer, count);
    m_Position = m_Position.Value() + written;
    m_PhysicalFileSize = std::max(m_PhysicalFileSize, m_Position);
    return written;
}

bool rfm_FileReprLocal::GrowsBy(utl_FileOffset delta) const
{
    return !m_ReadOnly && RoundedUp(m_LogicalFileSize + delta) > m_PhysicalFileSize;
}

bool rfm_FileReprLocal::ExtendBy(utl_FileOffset delta)
{
    CheckWritable();
    const utl_FileOffset logical = m_LogicalFileSize + delta;
    const bool grows = GrowsBy(delta);
    if (grows)
    {
        // First: a full disk leaves both sizes as they were, and the caller may try again.
        const utl_FileOffset physical = RoundedUp(logical);
        m_File.Extend(physical);
        m_PhysicalFileSize = physical;
    }
    m_LogicalFileSize = logical;
    return grows;
}

void rfm_FileReprLocal::TrimToLength()
{
    CheckWritable();
    m_File.Extend(m_LogicalFileSize);
    m_PhysicalFileSize = m_LogicalFileSize;
}

rfm_FileStatus::RfmFileStatus rfm_FileReprLocal::CheckStatus()
{
    ForgetKept(); // what is read behind this look is not older than it
    return m_Checker != nullptr ? m_Checker->CheckStatus() : rfm_FileStatus::RfmFileUnchanged;
}

void rfm_FileReprLocal::WriteStampBytes(int position, const char* bytes)
{
    const utl_FileOffset before = m_Position;
    Seek(position);
    Write(bytes, rfm_SizeStampBytes);
    Seek(before);
}

void rfm_FileReprLocal::WriteSizeStamp(int position)
{
    char bytes[rfm_SizeStampBytes];
    rfm_EncodeSizeStamp(m_PhysicalFileSize.Value(), Swapped(), bytes);
    WriteStampBytes(position, bytes);
}

void rfm_FileReprLocal::ClearSizeStamp(int position)
{
    static constexpr char kNothing[rfm_SizeStampBytes] = {};
    WriteStampBytes(position, kNothing);
    m_File.Flush(); // the stamp must be gone before the size changes
}

// A writer may be between its new size and its new stamp, or have made both since this file was opened: the look is
// repeated before the file is called corrupt.
void rfm_FileReprLocal::VerifySizeStamp(int position)
{
    const utl_FileOffset before = m_Position;
    bool allowed = false;
    for (int attempt = 0; attempt < kStampAttempts && !allowed; ++attempt)
    {
        char bytes[rfm_SizeStampBytes] = {};
        m_File.Forget();
        Seek(position);
        Read(bytes, sizeof bytes);
        m_PhysicalFileSize = m_File.FileSize();
        allowed = rfm_SizeStampAllows(bytes, Swapped(), m_PhysicalFileSize.Value());
    }
    Seek(before);
    if (!allowed) rfm_ThrowBadSizeStamp();
}
