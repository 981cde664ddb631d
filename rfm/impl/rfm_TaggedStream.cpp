#include "rfm_TaggedStream.h"

#include "rfm_TaggedStreamRepr.h"

void cow_Deleter<rfm_TaggedStreamRepr>::Delete(rfm_TaggedStreamRepr* object) { delete object; }

rfm_Handle rfm_TaggedStream::Handle() const { return Repr().Handle(); }
int rfm_TaggedStream::Flush() { return Repr().Flush(); }
int rfm_TaggedStream::Snap() { return Repr().Snap(); }
void rfm_TaggedStream::WriteInt(int id, int value) { Repr().WriteInt(id, value); }
void rfm_TaggedStream::WriteFloat(int id, float value) { Repr().WriteFloat(id, value); }
void rfm_TaggedStream::WriteDouble(int id, double value) { Repr().WriteDouble(id, value); }
void rfm_TaggedStream::WriteHandle(int id, rfm_Handle value) { Repr().WriteHandle(id, value); }
void rfm_TaggedStream::WriteString(int id, const cow_String& value) { Repr().WriteString(id, value); }
void rfm_TaggedStream::WriteFixedString(int id, const cow_String& value)
{
    Repr().WriteFixedString(id, value);
}
bool rfm_TaggedStream::Next() const { return Repr().Next(); }
rfm_Type rfm_TaggedStream::GetType() const { return Repr().GetType(); }
int rfm_TaggedStream::GetID() const { return Repr().GetID(); }
int rfm_TaggedStream::GetInt() const { return Repr().GetInt(); }
float rfm_TaggedStream::GetFloat() const { return Repr().GetFloat(); }
double rfm_TaggedStream::GetDouble() const { return Repr().GetDouble(); }
rfm_Handle rfm_TaggedStream::GetHandle() const { return Repr().GetHandle(); }
cow_String rfm_TaggedStream::GetString() const { return Repr().GetString(); }
cow_1DArrayList<cow_String> rfm_TaggedStream::GetObjStatistics() const { return Repr().GetObjStatistics(); }
utl_FileOffset rfm_TaggedStream::SpaceLength() const { return Repr().SpaceLength(); }
utl_FileOffset rfm_TaggedStream::SpaceAllocation() const { return Repr().SpaceAllocation(); }
