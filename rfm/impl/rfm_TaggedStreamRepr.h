#pragma once

#include "cow_1DArrayList.h"
#include "rfm_Handle.h"
#include "rfm_IOBuffer.h"
#include "rfm_SpaceRepr.h"
#include "rfm_Type.h"

#include <memory>

class rfm_DatabaseRepr;

/// A tagged stream: a space of a header and items, and the values of the current item.
class rfm_TaggedStreamRepr
{
public:
    rfm_TaggedStreamRepr(rfm_DatabaseRepr& database, int bufferSize);
    rfm_TaggedStreamRepr(rfm_DatabaseRepr& database, rfm_Handle handle, int bufferSize);

    rfm_Handle Handle() const { return m_Space->Handle(); }
    int Flush();
    int Snap();
    void WriteInt(int id, int value);
    void WriteFloat(int id, float value);
    void WriteDouble(int id, double value);
    void WriteHandle(int id, rfm_Handle value);
    void WriteString(int id, const cow_String& value);
    void WriteFixedString(int id, const cow_String& value);
    bool Next();
    rfm_Type GetType() const noexcept { return static_cast<rfm_Type>(m_CurrentType); }
    int GetID() const noexcept { return m_CurrentID; }
    int GetInt() const noexcept { return m_IntValue; }
    float GetFloat() const noexcept { return m_FloatValue; }
    double GetDouble() const noexcept { return m_DoubleValue; }
    rfm_Handle GetHandle() const noexcept { return m_HandleValue; }
    const cow_String& GetString() const noexcept { return m_StringValue; }
    cow_1DArrayList<cow_String> GetObjStatistics() const;
    utl_FileOffset SpaceLength() const { return m_Space->Length(); }
    utl_FileOffset SpaceAllocation() const { return m_Space->Allocation(); }

private:
    void WriteItem(rfm_Type type, int id, char* item, int bytes);
    template <class T> void WriteNumber(rfm_Type type, int id, T value);
    rfm_Handle ReadHandleValue();
    void ClearValues();

    rfm_DatabaseRepr& m_Database;
    // Order: the buffer settles into the space, so it goes first.
    std::unique_ptr<rfm_SpaceRepr> m_Space;
    rfm_IOBuffer m_Buffer;
    int m_FlushCount = 0;
    int m_DbFlushCount;
    int m_CurrentType = rfm_TypeNone;
    int m_CurrentID = 0;
    int m_IntValue = 0;
    float m_FloatValue = 0;
    double m_DoubleValue = 0;
    rfm_Handle m_HandleValue;
    cow_String m_StringValue;
};
