#pragma once

#include "cow_CountedHld.h"
#include "cow_String.h"
#include "rfm_FileException.h"
#include "utl_FileAccess.h"
#include "utl_FileException.h"

class rfm_FileRepr;

template <> struct RFM_EXPORT cow_Deleter<rfm_FileRepr>
{
    static void Delete(rfm_FileRepr* object);
};

/// A counted handle on the file that a database lives in, whatever its kind. Copies share one file and its
/// position; the last one to go closes it.
/// Threads: all copies, and the database on them, belong to one thread at a time. A compressed file that is only read,
/// and in sequence, starts a thread that inflates ahead, where there is a second processor; it takes no signals and
/// ends with the last handle. A process that forks may read on in the child, which goes without.
class RFM_EXPORT rfm_File : public cow_CountedHld<rfm_FileRepr>
{
public:
    rfm_File() noexcept = default;
    explicit rfm_File(rfm_FileRepr* repr) : cow_CountedHld<rfm_FileRepr>(repr) {}

    /// Opens or creates the file `name`. Which kind of file an existing one is, its first bytes tell.
    /// `access`: 0 read, 1 update, 2 create (a file of that name is replaced by a fresh, empty one; readers of the
    /// old one keep it). `flag` has no effect; it stays for callers that pass it.
    /// With `MRK_HDF_RDX` in the environment, a new file is an HDF5 file.
    /// With `MRK_RFM_LOGIFY` in the environment, one line on standard error tells the kind that was chosen.
    /// Throws: rfm_FileNoSuchFile, rfm_FileNotReadable, rfm_FileReadOnlyExc (update without permission; create or
    /// update of a URL), nex_AssertException for any other `access`, utl_FileException for what the operating system
    /// refuses, hdf_Exception where HDF5 refuses the file, as while another process writes it.
    static rfm_File Open(const cow_String& name, utl_FileAccess access, bool flag = false);

    /// Makes a new compressed file, over whatever has the name; from then on `Open` knows it by its first bytes. Its
    /// content is kept in segments of 64 KiB, each compressed by itself.
    /// Nothing of it is in the file before the first flush, and a segment is written over in place: a writer that dies
    /// between flushes may leave segments that can't be read. Readers see what was flushed when they open.
    /// Throws: rfm_FileReadOnlyExc for a URL, and the operating system's refusals.
    static rfm_File CreateCompressed(const cow_String& name);

    const cow_String& FileName() const;
    bool ReadOnly() const;

    /// Appends the rest of `source`, from its position, at the position of this file. The caller positions both.
    void Copy(const rfm_File& source);

    rfm_FileRepr& Repr() const { return *m_Object; }
};
