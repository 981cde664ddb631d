#include "rfm_DBStatusChecker.h"

#include "omi_Swapper.h"
#include "rfm_FileRepr.h"
#include "rfm_HeaderFormat.h"
#include "utl_FilePath.h"
#include "utl_UrlParser.h"

rfm_DBStatusChecker::~rfm_DBStatusChecker() = default;

rfm_DBStatusCheckerFile::rfm_DBStatusCheckerFile(const cow_String& fileName) : m_FileName(fileName)
{
    if (!utl_UrlParser::IsUrl(fileName)) m_SemaphorePath = rfm_SemaphorePath(fileName);
    const Seen now = Look();
    m_FlushCount = now.flushCount;
    m_CreationTime = now.creationTime;
    m_Identity = now.identity;
}

// Both numbers with one read, so that they are of one moment. What a short file lacks counts as zero.
rfm_DBStatusCheckerFile::Seen rfm_DBStatusCheckerFile::Look() const
{
    char bytes[8] = {};
    utl_File file(m_FileName, utl_FileAccessRead, 0);
    file.Seek(rfm_FlushCountOffset);
    file.Read(bytes, sizeof bytes);
    const omi_Swapper swapped(omi_Swapper::Stored);
    return {omi_Load<int>(bytes, swapped), omi_Load<int>(bytes + 4, swapped), file.Identity()};
}

bool rfm_DBStatusCheckerFile::SemaphoreIsPresent() const
{
    return !m_SemaphorePath.IsEmpty() && utl_Stat(m_SemaphorePath).Exists();
}

rfm_FileStatus::RfmFileStatus rfm_DBStatusCheckerFile::Tell(rfm_FileStatus::RfmFileStatus status)
{
    StatusSeen(status);
    return status;
}

rfm_FileStatus::RfmFileStatus rfm_DBStatusCheckerFile::CheckStatus()
{
    if (SemaphoreIsPresent()) return Tell(rfm_FileStatus::RfmFileInTransaction);
    Seen now;
    try
    {
        now = Look();
    }
    catch (const utl_FileExceptionNoFile&)
    {
        return Tell(rfm_FileStatus::RfmFileGone);
    }
    // The numbers stay as they were: a replaced file stays replaced.
    if (now.creationTime != m_CreationTime || now.identity != m_Identity)
        return Tell(rfm_FileStatus::RfmFileReplaced);
    if (now.flushCount == m_FlushCount) return Tell(rfm_FileStatus::RfmFileUnchanged);
    m_FlushCount = now.flushCount;
    StatusSeen(rfm_FileStatus::RfmFileUpdated);
    FileChanged();
    return rfm_FileStatus::RfmFileUpdated;
}
