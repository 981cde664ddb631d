#pragma once

#include "cow_1DArrayList.h"
#include "cow_CountedHld.h"
#include "cow_String.h"
#include "rfm_Handle.h"
#include "rfm_Type.h"
#include "utl_FileOffset.h"

class rfm_TaggedStreamRepr;

template <> struct RFM_EXPORT cow_Deleter<rfm_TaggedStreamRepr>
{
    static void Delete(rfm_TaggedStreamRepr* object);
};

/// A counted handle on a tagged stream: items one after the other, each with a type, a caller's identifier and a
/// value. It is written at its end and walked from its start, once, with `Next`. Copies share the position. The
/// last one to go writes what is pending, but not the count: call `Flush` first. It must go before the last
/// rfm_Database handle does.
/// Threads: a database and everything made from it belongs to one thread at a time.
class RFM_EXPORT rfm_TaggedStream : public cow_CountedHld<rfm_TaggedStreamRepr>
{
public:
    rfm_TaggedStream() noexcept = default;
    explicit rfm_TaggedStream(rfm_TaggedStreamRepr* repr) : cow_CountedHld<rfm_TaggedStreamRepr>(repr) {}

    rfm_Handle Handle() const;
    /// Writes what is pending and answers the flush count, which grows at each call; 0 on a read-only stream.
    int Flush();
    /// A reader's refresh, after the database's: the new flush count, and the walk goes on. 0 when nothing is new;
    /// when the database changed and this stream did not, the walk starts over.
    /// Always 0 on a writable stream.
    int Snap();

    /// Each adds one item at the position; `id` means what the caller likes.
    /// Throws: nex_TextException on a read-only stream; what the file system refuses. The item is not there then.
    void WriteInt(int id, int value);
    void WriteFloat(int id, float value);
    void WriteDouble(int id, double value);
    void WriteHandle(int id, rfm_Handle value);
    void WriteString(int id, const cow_String& value);
    /// Characters in place, padded to a multiple of 4. `Next` takes their first four for a length: a text is read
    /// back only when its writer put the length there.
    void WriteFixedString(int id, const cow_String& value);

    /// Goes to the next item; false at the end, where the last item's values stay.
    /// Throws: nex_TextException for an item that is cut off, nex_AssertException for an unknown type.
    bool Next() const;
    /// The current item: the one just walked to or just written. A getter of another type gives 0 or empty.
    rfm_Type GetType() const;
    int GetID() const;
    int GetInt() const;
    float GetFloat() const;
    double GetDouble() const;
    rfm_Handle GetHandle() const;
    cow_String GetString() const;

    /// As rfm_Database::GetObjStatistics; lengths are in bytes.
    cow_1DArrayList<cow_String> GetObjStatistics() const;
    utl_FileOffset SpaceLength() const;
    utl_FileOffset SpaceAllocation() const;

    rfm_TaggedStreamRepr& Repr() const { return *m_Object; }
};
