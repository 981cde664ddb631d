#pragma once

#include "atr_String.h"
#include "cow_1DArrayList.h"
#include "cow_Map.h"
#include "cow_String.h"
#include "rfm_DBMetadata.h"
#include "rfm_FileStatus.h"
#include "rfm_Handle.h"
#include "rfm_Type.h"
#include "utl_FileOffset.h"

#include <memory>

class rfm_SpaceRepr;
class rfm_TableMetadata;

/// One database, whatever it lies in.
class rfm_DatabaseRepr
{
public:
    virtual ~rfm_DatabaseRepr();
    rfm_DatabaseRepr(const rfm_DatabaseRepr&) = delete;
    rfm_DatabaseRepr& operator=(const rfm_DatabaseRepr&) = delete;

    virtual const cow_String& FileName() const = 0;
    virtual cow_String Description() = 0;
    virtual bool ReadOnly() const = 0;
    virtual void Flush() = 0;
    virtual bool Snap() = 0;
    virtual int GetFlushCount() const = 0;
    virtual void SetCreationTime(long long time) = 0;
    virtual rfm_Handle RootTableHandle() = 0;
    virtual rfm_Handle RootTableHandle2() = 0;
    virtual rfm_FileStatus::RfmFileStatus FileStatus() = 0;
    virtual atr_String CheckNRDXCache() = 0;
    virtual void ReaderSemaphoreSet() = 0;
    virtual void ReaderSemaphoreClear() = 0;
    virtual cow_1DArrayList<cow_String> GetObjStatistics(const rfm_Handle& handle) = 0;
    virtual cow_1DArrayList<cow_String> GetDBStatistics() = 0;
    virtual cow_String GetObjectLocationReport(const utl_FileOffset& offset);
    /// The caller owns the space.
    virtual rfm_SpaceRepr* OpenSpace(const rfm_Handle& handle, int quantum) = 0;
    virtual rfm_SpaceRepr* NewSpace(int quantum) = 0;
    virtual void Close() = 0;
    virtual cow_1DArrayList<rfm_Handle> Handles() = 0;

    rfm_Type HandleType(const rfm_Handle& handle);
    /// The layouts of this database's tables.
    /// Throws: nex_TextException once the database is closed.
    rfm_DBMetadata& Metadata() const;

protected:
    rfm_DatabaseRepr();
    [[noreturn]] void ThrowClosed() const;
    std::unique_ptr<rfm_DBMetadata> m_Metadata;
};
