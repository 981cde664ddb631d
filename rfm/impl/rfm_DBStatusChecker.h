#pragma once

#include "cow_String.h"
#include "rfm_FileStatus.h"
#include "utl_File.h"

/// Tells whether another process has changed a database's file.
class rfm_DBStatusChecker
{
public:
    virtual ~rfm_DBStatusChecker();
    virtual rfm_FileStatus::RfmFileStatus CheckStatus() = 0;
};

/// Looks at the header of a file from outside, through a descriptor of its own.
class rfm_DBStatusCheckerFile : public rfm_DBStatusChecker
{
public:
    explicit rfm_DBStatusCheckerFile(const cow_String& fileName);

    rfm_FileStatus::RfmFileStatus CheckStatus() override;
    /// What a checker in another setting, such as a server, does with a status and with a change.
    virtual void StatusSeen(int status) = 0;
    virtual void FileChanged() = 0;

private:
    struct Seen
    {
        int flushCount = 0;
        int creationTime = 0;
        utl_FileIdentity identity;
    };
    Seen Look() const;
    bool SemaphoreIsPresent() const;
    rfm_FileStatus::RfmFileStatus Tell(rfm_FileStatus::RfmFileStatus status);

    cow_String m_FileName;
    cow_String m_SemaphorePath; // empty for a URL, which has none
    int m_FlushCount;
    int m_CreationTime;
    utl_FileIdentity m_Identity; // two databases may have been made within one tick of the creation time
};

/// The checker of a local file, which does nothing with what it sees.
class rfm_DBStatusCheckerFileLocal : public rfm_DBStatusCheckerFile
{
public:
    using rfm_DBStatusCheckerFile::rfm_DBStatusCheckerFile;
    void StatusSeen(int) override {}
    void FileChanged() override {}
};
