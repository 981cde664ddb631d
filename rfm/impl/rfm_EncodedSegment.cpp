#include "rfm_EncodedSegment.h"

#include "nex_Exception.h"
#include "rfm_ArmedSegment.h"
#include "rfm_Exc.h"
#include "rfm_KnownSegments.h"
#include "rfm_SectorArray.h"
#include "rfm_SegmentsAhead.h"

#include <algorithm>
#include <cstring>
#include <optional>

rfm_EncodedSegment::rfm_EncodedSegment(int index, rfm_SectorArray* sectorArray, rfm_SegmentBufferCache* cache,
                                       rfm_Codec* codec, int decodedLength, int storedLength,
                                       rfm_SegmentsAhead* ahead, rfm_KnownSegments* known)
    : m_Index(index),
      m_SectorArray(sectorArray),
      m_Cache(cache),
      m_Codec(codec),
      m_Ahead(ahead),
      m_Known(known),
      m_DecodedLength(decodedLength),
      m_StoredLength(storedLength)
{
}

void rfm_EncodedSegment::Arm()
{
    if (m_Armed == 0)
    {
        m_Buffer = m_Cache->Acquire(m_Index);
        try
        {
            if (m_DecodedLength > m_Buffer->Size()) nex_ThrowAssert("m_DecodedLength <= m_Buffer->Size()");
            if (!IsLoaded() && !IsLeftToReads()) Load();
        }
        catch (...)
        {
            // The buffer may be taken again; its bytes stand for nothing.
            m_Cache->Release(m_Index, this);
            m_Buffer = nullptr;
            throw;
        }
    }
    ++m_Armed;
}

void rfm_EncodedSegment::Disarm()
{
    if (m_Armed <= 0) nex_ThrowAssert("m_Armed > 0");
    if (--m_Armed > 0) return;
    m_Cache->Release(m_Index, this);
    m_Buffer = nullptr;
}

void rfm_EncodedSegment::Load()
{
    if (m_Buffer == nullptr) nex_ThrowAssert("m_Buffer");
    if (IsLoaded()) nex_ThrowAssert("!m_Loaded");
    if (!LoadAhead()) LoadWhole();
}

// A front wanted more later: the segment is being read on, and is loaded whole.
void rfm_EncodedSegment::LoadUpTo(int end)
{
    const bool hadFront = m_LoadedLength > 0;
    m_LoadedLength = 0;
    if (hadFront)
    {
        m_Known->WantedMore();
        LoadWhole();
    }
    else if (!LoadAhead() && !LoadFront(end))
        LoadWhole();
}

bool rfm_EncodedSegment::HasBytesStored() const
{
    return m_StoredLength > 0 && m_SectorArray->HasChain(m_Index);
}

bool rfm_EncodedSegment::IsLeftToReads() const { return m_Known != nullptr && m_Known->Has(m_Index); }

bool rfm_EncodedSegment::LoadAhead()
{
    if (m_Ahead == nullptr || !HasBytesStored()) return false;
    const std::optional<int> length = m_Ahead->Load(m_Index, *m_Buffer);
    if (length.has_value()) SetWhole(*length);
    return length.has_value();
}

bool rfm_EncodedSegment::LoadFront(int end)
{
    if (m_Known == nullptr || m_Ahead->IsInARun()) return false;
    const int front = m_Known->ChooseFront(m_Index, end);
    if (front == 0) return false;
    rfm_SegmentBuffer& encoded = m_Cache->WorkBuffer();
    ReadStream(*m_SectorArray, m_Index, m_Codec->MostEncoded(m_Buffer->Size()), encoded);
    const bool isKnown =
        m_Codec->DecodeFront(*m_Buffer, encoded, front) && m_Known->IsFront(m_Index, *m_Buffer, front);
    if (isKnown)
        m_LoadedLength = front;
    else
        m_Known->WantedMore(); // it has changed, or does not compress
    return isKnown;
}

void rfm_EncodedSegment::LoadWhole()
{
    const int length = HasBytesStored() ? DecodeStream() : 0;
    SetWhole(length);
    if (m_Known != nullptr && length == m_Buffer->Size() && !m_Ahead->IsInARun())
        m_Known->Note(m_Index, *m_Buffer);
}

int rfm_EncodedSegment::DecodeStream()
{
    rfm_SegmentBuffer& encoded = m_Cache->WorkBuffer();
    ReadStream(*m_SectorArray, m_Index, m_Codec->MostEncoded(m_Buffer->Size()), encoded);
    return m_Codec->Decode(*m_Buffer, encoded);
}

void rfm_EncodedSegment::SetWhole(int decodedLength)
{
    m_Buffer->ClearFrom(std::min(decodedLength, m_StoredLength));
    m_LoadedLength = m_Buffer->Size();
}

// kept: as many bytes are asked for as the stored length says, which counts its own four, and up to four less will do:
// what follows a stream doesn't matter. Test: ATailOfFourBytesOfAnyValueDoesNotMatter.
void rfm_EncodedSegment::ReadStream(rfm_SectorArray& sectorArray, int index, int mostEncoded,
                                    rfm_SegmentBuffer& encoded)
{
    rfm_SectorReader reader = sectorArray.GetReader(index);
    const int length = reader.Length();
    // Before there is memory for it: the file's size, which bounds it too, may be that of a sparse one.
    if (length - rfm_StreamLengthBytes > mostEncoded) rfm_ThrowEncodedCorrupt();
    encoded.Require(length);
    const int read = reader.Read(encoded.Writable(length), length);
    if (read < length - rfm_StreamLengthBytes) rfm_ThrowEncodedCorrupt();
    encoded.Shrink(read);
}

void rfm_EncodedSegment::Read(char* target, int first, int length)
{
    if (!IsArmed()) nex_ThrowAssert("m_Armed");
    if (first < 0 || length < 0 || length > m_DecodedLength - first)
        nex_ThrowAssert("first + length <= m_DecodedLength");
    if (first + length > m_LoadedLength) LoadUpTo(first + length);
    std::memcpy(target, m_Buffer->Data() + first, static_cast<std::size_t>(length));
}

void rfm_EncodedSegment::Write(const char* source, int firstOut, int length)
{
    if (!IsArmed()) nex_ThrowAssert("m_Armed");
    if (firstOut < 0 || length > m_Buffer->Size() - firstOut)
        nex_ThrowAssert("firstOut + length <= m_Buffer->Size()");
    if (length <= 0) return;
    std::memcpy(m_Buffer->Writable(firstOut + length) + firstOut, source, static_cast<std::size_t>(length));
    m_DecodedLength = std::max(m_DecodedLength, firstOut + length);
    m_Dirty = true;
}

// The length is stored with the segment, so one that has a stream gets it anew; but not for the same length, which would
// only encode the same bytes, and never in a file that is only read.
void rfm_EncodedSegment::SetDecodedLength(int length)
{
    const bool isToStore =
        length != m_DecodedLength && m_SectorArray->HasChain(m_Index) && !m_SectorArray->ReadOnly();
    // A stream that can't be read fails here, not in every flush to come.
    const bool isToLoad = isToStore && !IsLoaded() && m_StoredLength > 0;
    if (isToLoad || (length < m_DecodedLength && IsLoaded()))
    {
        const rfm_ArmedSegment armed(this);
        m_Buffer->ClearFrom(length);
    }
    m_DecodedLength = length;
    m_StoredLength = std::min(m_StoredLength, length);
    if (isToStore) m_Dirty = true;
}

bool rfm_EncodedSegment::IsForgettable(int decodedLength) const
{
    if (IsArmed() || IsLoaded() || m_Dirty || m_DecodedLength != decodedLength) return false;
    return m_StoredLength == decodedLength || !m_SectorArray->HasChain(m_Index);
}

void rfm_EncodedSegment::Store(const rfm_SegmentBuffer* buffer)
{
    if (buffer == nullptr) nex_ThrowAssert("buffer");
    if (!m_Dirty) nex_ThrowAssert("m_Dirty");
    rfm_SegmentBuffer& encoded = m_Cache->WorkBuffer();
    m_Codec->Encode(encoded, *buffer, m_DecodedLength);
    StoreEncoded(encoded);
}

void rfm_EncodedSegment::StoreEncoded(const rfm_SegmentBuffer& encoded)
{
    rfm_SectorWriter writer = m_SectorArray->GetWriter(m_Index);
    writer.Write(encoded.Data(), encoded.Size());
    writer.End();
    // Last: what could not be written is still to be stored.
    m_Dirty = false;
    m_StoredLength = m_DecodedLength;
}

void rfm_EncodedSegment::BufferTaken(int, rfm_SegmentBuffer* buffer)
{
    if (buffer == nullptr) nex_ThrowAssert("buffer");
    if (IsArmed()) nex_ThrowAssert("!m_Armed");
    // A buffer whose load has failed holds nothing to store, though the length may have changed.
    if (m_Dirty && IsLoaded()) Store(buffer);
    m_LoadedLength = 0;
}

void rfm_EncodedSegment::Flush()
{
    if (!m_Dirty) return;
    const rfm_ArmedSegment armed(this);
    // Arming may have made room by storing others, never this one.
    Store(m_Buffer);
}

void rfm_EncodedSegment::Prepare(rfm_SegmentBuffer& encoded)
{
    if (!m_Dirty) nex_ThrowAssert("m_Dirty");
    const rfm_ArmedSegment armed(this);
    m_Codec->Encode(encoded, *m_Buffer, m_DecodedLength);
    m_SectorArray->LengthenChain(m_Index, encoded.Size());
}
