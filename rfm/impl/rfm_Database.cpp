#include "rfm_Database.h"

#include "nex_Exception.h"
#include "nex_Report.h"
#include "rfm_ArrayRepr.h"
#include "rfm_DatabaseReprFile.h"
#include "rfm_ReaderSemaphoreProxy.h"
#include "rfm_TableRepr.h"
#include "rfm_TaggedStreamRepr.h"

#include <memory>

void cow_Deleter<rfm_DatabaseRepr>::Delete(rfm_DatabaseRepr* object) { delete object; }

rfm_Database rfm_Database::Open(const rfm_File& file, const cow_String& magic)
{
    auto repr = std::make_unique<rfm_DatabaseReprFile>(file);
    repr->Open(magic);
    return rfm_Database(repr.release());
}

rfm_Database rfm_Database::Create(const rfm_File& file, const cow_String& magic,
                                  const cow_String& description, long long creationTime)
{
    auto repr = std::make_unique<rfm_DatabaseReprFile>(file);
    repr->Create(magic, description, creationTime);
    return rfm_Database(repr.release());
}

bool rfm_Database::IsMagic(const rfm_File& file, const cow_String& magic)
{
    return rfm_DatabaseReprFile::IsMagic(file, magic);
}

long long rfm_Database::GetCreationTime(const rfm_File& file)
{
    return rfm_DatabaseReprFile::GetCreationTime(file);
}

void rfm_Database::Close() { Repr().Close(); }
cow_1DArrayList<rfm_Handle> rfm_Database::Handles() const { return Repr().Handles(); }
const cow_String& rfm_Database::FileName() const { return Repr().FileName(); }
cow_String rfm_Database::Description() const { return Repr().Description(); }
bool rfm_Database::ReadOnly() const { return Repr().ReadOnly(); }
void rfm_Database::Flush() { Repr().Flush(); }
int rfm_Database::Snap() { return Repr().Snap() ? 1 : 0; }
int rfm_Database::GetFlushCount() const { return Repr().GetFlushCount(); }
void rfm_Database::SetCreationTime(long long time) { Repr().SetCreationTime(time); }
rfm_FileStatus::RfmFileStatus rfm_Database::FileStatus() { return Repr().FileStatus(); }
atr_String rfm_Database::CheckNRDXCache() { return Repr().CheckNRDXCache(); }
void rfm_Database::ReaderSemaphoreSet() { Repr().ReaderSemaphoreSet(); }
void rfm_Database::ReaderSemaphoreClear() { Repr().ReaderSemaphoreClear(); }
rfm_Handle rfm_Database::RootTableHandle() const { return Repr().RootTableHandle(); }
rfm_Handle rfm_Database::RootTableHandle2() const { return Repr().RootTableHandle2(); }
rfm_Type rfm_Database::HandleType(const rfm_Handle& handle) { return Repr().HandleType(handle); }

const rfm_TableMetadata& rfm_Database::Bind(const rfm_TableMetadata& metadata)
{
    return Repr().Metadata().Bind(metadata);
}

void rfm_Database::Bind() { Repr().Metadata().Bind(); }
bool rfm_Database::HasTable(const cow_String& name) const { return Repr().Metadata().HasTable(name); }

const rfm_TableMetadata& rfm_Database::GetTableMetadata(const cow_String& name) const
{
    return Repr().Metadata().GetTableMetadata(name);
}

const rfm_TableMetadata& rfm_Database::GetTableMetadata(const utl_FileOffset& handle) const
{
    return Repr().Metadata().GetTableMetadata(handle);
}

const utl_FileOffset& rfm_Database::GetTableMetadataHandle(const cow_String& name) const
{
    return Repr().Metadata().GetTableMetadataHandle(name);
}

cow_1DArrayList<cow_String> rfm_Database::GetTableMetadataNames() const
{
    return Repr().Metadata().GetTableMetadataNames();
}

void rfm_Database::InsertInMapClassName2ClassVersion(const cow_String& name, int version)
{
    Repr().Metadata().InsertInMapClassName2ClassVersion(name, version);
}

const cow_Map<cow_String, int>& rfm_Database::GetMapClassName2ClassVersion() const
{
    return Repr().Metadata().GetMapClassName2ClassVersion();
}

cow_1DArrayList<cow_String> rfm_Database::GetObjStatistics(const rfm_Handle& handle) const
{
    return Repr().GetObjStatistics(handle);
}

cow_1DArrayList<cow_String> rfm_Database::GetDBStatistics() const { return Repr().GetDBStatistics(); }

cow_String rfm_Database::GetObjectLocationReport(const utl_FileOffset& offset) const
{
    return Repr().GetObjectLocationReport(offset);
}

rfm_ReaderSemaphoreProxy::~rfm_ReaderSemaphoreProxy()
{
    try
    {
        m_Database.ReaderSemaphoreClear();
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
    }
}

// ---- Factories ----

rfm_Space rfm_Database::Space(int quantum) { return rfm_Space(Repr().NewSpace(quantum)); }

rfm_Space rfm_Database::Space(const rfm_Handle& handle, int quantum)
{
    return rfm_Space(Repr().OpenSpace(handle, quantum));
}

rfm_Table rfm_Database::Table(const cow_String& name, int quantum, int readAhead)
{
    return rfm_Table(new rfm_TableRepr(Repr(), name, quantum, readAhead));
}

rfm_Table rfm_Database::Table(const rfm_TableMetadata& metadata, int quantum, int readAhead)
{
    return rfm_Table(new rfm_TableRepr(Repr(), metadata, quantum, readAhead));
}

rfm_Table rfm_Database::Table(rfm_Handle handle, int quantum, int readAhead)
{
    return rfm_Table(new rfm_TableRepr(Repr(), handle, quantum, readAhead));
}

template <class T, int N>
static rfm_Array<T, N> OpenArray(rfm_DatabaseRepr& database, rfm_Handle handle, int quantum, int bufferSize)
{
    auto repr = std::make_unique<rfm_ArrayRepr>(database, handle, quantum, bufferSize);
    if (repr->Type() != N) nex_ThrowAssert("repr->Type() == type");
    return rfm_Array<T, N>(repr.release());
}

template <class T, int N>
static rfm_Array<T, N> NewArray(rfm_DatabaseRepr& database, int fieldCount, int quantum, int bufferSize)
{
    return rfm_Array<T, N>(
        new rfm_ArrayRepr(database, static_cast<rfm_Type>(N), fieldCount, quantum, bufferSize));
}

rfm_Array<int, rfm_TypeInt> rfm_Database::ArrayInt(int fieldCount, int quantum, int bufferSize)
{
    return NewArray<int, rfm_TypeInt>(Repr(), fieldCount, quantum, bufferSize);
}

rfm_Array<int, rfm_TypeInt> rfm_Database::ArrayInt(rfm_Handle handle, int quantum, int bufferSize)
{
    return OpenArray<int, rfm_TypeInt>(Repr(), handle, quantum, bufferSize);
}

rfm_Array<float, rfm_TypeFloat> rfm_Database::ArrayFloat(int fieldCount, int quantum, int bufferSize)
{
    return NewArray<float, rfm_TypeFloat>(Repr(), fieldCount, quantum, bufferSize);
}

rfm_Array<float, rfm_TypeFloat> rfm_Database::ArrayFloat(rfm_Handle handle, int quantum, int bufferSize)
{
    return OpenArray<float, rfm_TypeFloat>(Repr(), handle, quantum, bufferSize);
}

rfm_Array<double, rfm_TypeDouble> rfm_Database::ArrayDouble(int fieldCount, int quantum, int bufferSize)
{
    return NewArray<double, rfm_TypeDouble>(Repr(), fieldCount, quantum, bufferSize);
}

rfm_Array<double, rfm_TypeDouble> rfm_Database::ArrayDouble(rfm_Handle handle, int quantum, int bufferSize)
{
    return OpenArray<double, rfm_TypeDouble>(Repr(), handle, quantum, bufferSize);
}

rfm_Array<cow_String, rfm_TypeString> rfm_Database::ArrayString(int fieldCount, int quantum, int bufferSize)
{
    return NewArray<cow_String, rfm_TypeString>(Repr(), fieldCount, quantum, bufferSize);
}

rfm_Array<cow_String, rfm_TypeString> rfm_Database::ArrayString(rfm_Handle handle, int quantum,
                                                                int bufferSize)
{
    return OpenArray<cow_String, rfm_TypeString>(Repr(), handle, quantum, bufferSize);
}

rfm_TaggedStream rfm_Database::TaggedStream(int bufferSize)
{
    return rfm_TaggedStream(new rfm_TaggedStreamRepr(Repr(), bufferSize));
}

rfm_TaggedStream rfm_Database::TaggedStream(rfm_Handle handle, int bufferSize)
{
    return rfm_TaggedStream(new rfm_TaggedStreamRepr(Repr(), handle, bufferSize));
}
