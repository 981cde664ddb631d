#include "rfm_BufferedSpace.h"

#include "rfm_IOBuffer.h"
#include "rfm_SpaceRepr.h"

void cow_Deleter<rfm_SpaceRepr>::Delete(rfm_SpaceRepr* object) { delete object; }
void cow_Deleter<rfm_IOBuffer>::Delete(rfm_IOBuffer* object) { delete object; }

rfm_Handle rfm_Space::Handle() const { return Repr().Handle(); }
bool rfm_Space::ReadOnly() const { return Repr().ReadOnly(); }
utl_FileOffset rfm_Space::Length() const { return Repr().Length(); }
utl_FileOffset rfm_Space::Allocation() const { return Repr().Allocation(); }
utl_FileOffset rfm_Space::Location() const { return Repr().Location(); }
void rfm_Space::Seek(utl_FileOffset offset) { Repr().Seek(offset); }
void rfm_Space::Truncate(utl_FileOffset length) { Repr().Truncate(length); }
void rfm_Space::Flush() { Repr().Flush(); }
void rfm_Space::Extend(utl_FileOffset amount) { Repr().Extend(amount); }
int rfm_Space::Read(char* buffer, int count) { return Repr().Read(buffer, count); }
int rfm_Space::Write(const char* buffer, int count) { return Repr().Write(buffer, count); }
int rfm_Space::ReadInt() { return Repr().ReadInt(); }
void rfm_Space::WriteInt(int value) { Repr().WriteInt(value); }

rfm_BufferedSpace::rfm_BufferedSpace(const rfm_Space& space)
    : m_Space(space),
      m_Buffer(new rfm_IOBuffer(&space.Repr(), 0))
{
}

bool rfm_BufferedSpace::ReadOnly() const { return m_Buffer.Get().ReadOnly(); }
utl_FileOffset rfm_BufferedSpace::Length() const { return m_Buffer.Get().Length(); }
void rfm_BufferedSpace::Seek(utl_FileOffset offset) { m_Buffer.Get().Seek(offset); }
utl_FileOffset rfm_BufferedSpace::Location() const { return m_Buffer.Get().Location(); }
void rfm_BufferedSpace::Flush() { m_Buffer.Get().Flush(); }
void rfm_BufferedSpace::Extend(utl_FileOffset amount) { m_Buffer.Get().Extend(amount); }
int rfm_BufferedSpace::Read(char* buffer, int count) { return m_Buffer.Get().Read(buffer, count); }
int rfm_BufferedSpace::Write(const char* buffer, int count) { return m_Buffer.Get().Write(buffer, count); }
int rfm_BufferedSpace::ReadIntArray(int* values, int count)
{
    return m_Buffer.Get().ReadArray(values, count);
}
int rfm_BufferedSpace::ReadFloatArray(float* values, int count)
{
    return m_Buffer.Get().ReadArray(values, count);
}
int rfm_BufferedSpace::ReadDoubleArray(double* values, int count)
{
    return m_Buffer.Get().ReadArray(values, count);
}
void rfm_BufferedSpace::WriteIntArray(const int* values, int count)
{
    m_Buffer.Get().WriteArray(values, count);
}
void rfm_BufferedSpace::WriteFloatArray(const float* values, int count)
{
    m_Buffer.Get().WriteArray(values, count);
}
void rfm_BufferedSpace::WriteDoubleArray(const double* values, int count)
{
    m_Buffer.Get().WriteArray(values, count);
}
