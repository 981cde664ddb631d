#pragma once

#include "cow_CountedHld.h"
#include "rfm_Handle.h"
#include "utl_FileOffset.h"

class rfm_SpaceRepr;

template <> struct RFM_EXPORT cow_Deleter<rfm_SpaceRepr>
{
    static void Delete(rfm_SpaceRepr* object);
};

/// A counted handle on one byte stream of a database: seekable, growable, named by its handle, without any
/// content of the library's own. Copies share one position. Data goes to the file at each write; it becomes
/// visible to readers, and survives a crash, with the database's next `Flush`.
/// It must go before the last rfm_Database handle does. Positions, lengths and counts are in bytes.
/// Threads: a database and everything made from it belongs to one thread at a time.
class RFM_EXPORT rfm_Space : public cow_CountedHld<rfm_SpaceRepr>
{
public:
    rfm_Space() noexcept = default;
    explicit rfm_Space(rfm_SpaceRepr* repr) : cow_CountedHld<rfm_SpaceRepr>(repr) {}

    rfm_Handle Handle() const;
    bool ReadOnly() const;
    /// Bytes in use. A reader's value moves on with the database's `Snap`.
    utl_FileOffset Length() const;
    /// Bytes reserved in the file, at least `Length()`.
    utl_FileOffset Allocation() const;
    utl_FileOffset Location() const;
    /// Moves to `offset`, at most `Length()`.
    /// Throws: nex_TextException past the length; the position stays then.
    void Seek(utl_FileOffset offset);
    /// Shortens to `length` bytes and goes to 0. Nothing is given back to the file. A larger `length` changes nothing.
    void Truncate(utl_FileOffset length);
    /// Does nothing more: writes have gone to the file, and the database's `Flush` publishes them.
    void Flush();
    /// Makes room in the file for `amount` bytes behind the position; `Length()` stays.
    /// Throws: nex_TextException for an amount below 1 or a read-only database; what the file system refuses.
    void Extend(utl_FileOffset amount);
    /// Reads up to `count` bytes into `buffer`; answers how many: fewer at the end, 0 at the end.
    /// Throws: nex_TextException for a null buffer or a count below 1.
    int Read(char* buffer, int count);
    /// Writes `count` bytes and answers `count`.
    /// Throws: nex_TextException for a null buffer, a count below 1, or a read-only database.
    int Write(const char* buffer, int count);
    /// One number of 4 bytes, in the byte order of files.
    /// Throws: nex_TextException when fewer than 4 bytes follow, or for a write on a read-only database.
    int ReadInt();
    void WriteInt(int value);

    rfm_SpaceRepr& Repr() const { return *m_Object; }
};
