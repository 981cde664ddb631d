#pragma once

#include "rfm_Database.h"

/// Holds readers off for its lifetime: a scope guard around a change that must not be seen half done. The
/// semaphore is a directory beside the file, "job.lsm" for "job.rdx"; one left by a crashed writer stays until
/// someone removes it (`rfm unlock`).
class RFM_EXPORT rfm_ReaderSemaphoreProxy
{
public:
    explicit rfm_ReaderSemaphoreProxy(rfm_Database& database) : m_Database(database)
    {
        m_Database.ReaderSemaphoreSet();
    }
    /// A failure to write what is pending is one line on standard error.
    ~rfm_ReaderSemaphoreProxy();
    rfm_ReaderSemaphoreProxy(const rfm_ReaderSemaphoreProxy&) = delete;
    rfm_ReaderSemaphoreProxy& operator=(const rfm_ReaderSemaphoreProxy&) = delete;

private:
    rfm_Database& m_Database;
};
