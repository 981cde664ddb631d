#pragma once

#include "atr_String.h"
#include "cow_1DArrayList.h"
#include "cow_CountedHld.h"
#include "cow_Map.h"
#include "cow_String.h"
#include "rfm_Array.h"
#include "rfm_File.h"
#include "rfm_FileStatus.h"
#include "rfm_Handle.h"
#include "rfm_Space.h"
#include "rfm_Table.h"
#include "rfm_TableMetadata.h"
#include "rfm_TaggedStream.h"
#include "rfm_Type.h"

class rfm_DatabaseRepr;

template <> struct RFM_EXPORT cow_Deleter<rfm_DatabaseRepr>
{
    static void Delete(rfm_DatabaseRepr* object);
};

/// A counted handle on one database: a file of tables, arrays, streams and plain spaces, each named by a handle, with
/// one pool of strings and one of table layouts. Copies share the database; the last one to go closes it. Objects
/// made from it don't keep it open: they must go first.
///
/// One process writes, any number follow. The writer calls `Flush` on its objects and then here; a reader polls
/// `FileStatus`, and at "updated" calls `Snap` here and then on its objects. What was flushed survives a crash of the
/// writer; what came later does not.
/// New database: `rfm_File::Open(name, utl_FileAccessCreate)`, `Create`, `Bind` the layouts, then make the two root
/// tables before anything else takes a handle (no other object, and no `Flush` with new strings before both exist),
/// so that they get handles 4 and 5.
///
/// `quantum`, in bytes, is the step in which an object's room in the file grows; below 4 means 4. `bufferSize`, in
/// bytes, is an array's or stream's block in memory; 0 means 2048.
/// Threads: a database and everything made from it belongs to one thread at a time.
class RFM_EXPORT rfm_Database : public cow_CountedHld<rfm_DatabaseRepr>
{
public:
    rfm_Database() noexcept = default;
    /// Takes ownership.
    explicit rfm_Database(rfm_DatabaseRepr* repr) : cow_CountedHld<rfm_DatabaseRepr>(repr) {}

    /// Opens the database on `file`. `magic` is the application's mark, of which four characters count; an empty
    /// one accepts any.
    /// Throws: nex_TextException for a file that is no database, of another application or version, or damaged.
    static rfm_Database Open(const rfm_File& file, const cow_String& magic);
    /// Writes a new database on `file`, which was opened with create access or made by `CreateCompressed`. Of the
    /// description 484 bytes are kept, of the time its low 32 bits.
    static rfm_Database Create(const rfm_File& file, const cow_String& magic, const cow_String& description,
                               long long creationTime);
    /// Whether `file` starts as a database with this application magic; never throws for what the file holds.
    static bool IsMagic(const rfm_File& file, const cow_String& magic);
    /// The stored time of creation; 0 for a file of version 11.
    static long long GetCreationTime(const rfm_File& file);

    /// Closes the file: what is pending is written, the file is cut to its size. Objects must be gone.
    /// The destructor does the same when nobody called this, but can only report a failure on standard error.
    /// Throws: whatever the file refuses. The database can't be used any more.
    void Close();

    const cow_String& FileName() const;
    /// Read from the file at each call.
    cow_String Description() const;
    bool ReadOnly() const;
    /// Publishes: pools, linkage table, and last the flush count. Tables, arrays and streams are not flushed by
    /// this: flush them first, or a reader may see half a row.
    void Flush();
    /// A reader's refresh: 1 when the view moved on, 0 when there is nothing new, while a writer holds the reader
    /// semaphore, and always on a writable database. Layouts that came after the open stay unknown.
    int Snap();
    int GetFlushCount() const;
    void SetCreationTime(long long time);
    /// A look at the file from outside. "Updated" is answered once per change. Always "unchanged" for a database
    /// that this process created, and for compressed and HDF5 files.
    rfm_FileStatus::RfmFileStatus FileStatus();
    /// A warning for the user about the cache of a remote file, or an empty string.
    atr_String CheckNRDXCache();
    /// Tells readers to wait, by a directory beside the file, and takes it away: see rfm_ReaderSemaphoreProxy.
    void ReaderSemaphoreSet();
    void ReaderSemaphoreClear();

    /// 4 and 5, whether or not the application has made these tables.
    rfm_Handle RootTableHandle() const;
    rfm_Handle RootTableHandle2() const;
    /// The handles of all objects in ascending order: the pools 1 and 3 and the unused 2 first, then what applications
    /// made, plain spaces included.
    /// Throws: nex_TextException when the linkage table is damaged.
    cow_1DArrayList<rfm_Handle> Handles() const;
    /// What the object is: table, stream, the element type of an array, or unknown.
    /// Throws: nex_TextException for a handle without an object.
    rfm_Type HandleType(const rfm_Handle& handle);

    /// Joins the caller's layout with the stored one, or stores it when the file has none of that name. The result
    /// lives as long as the database and is what `Table` wants.
    /// Throws: nex_TextException when a field's type differs, or for a new layout on a read-only database.
    const rfm_TableMetadata& Bind(const rfm_TableMetadata& metadata);
    /// Makes every stored layout available as the file has it.
    void Bind();
    bool HasTable(const cow_String& name) const;
    /// Throws: nex_TextException when the name is unknown or its layout was not bound.
    const rfm_TableMetadata& GetTableMetadata(const cow_String& name) const;
    const rfm_TableMetadata& GetTableMetadata(const utl_FileOffset& handle) const;
    const utl_FileOffset& GetTableMetadataHandle(const cow_String& name) const;
    /// All layouts' names, ascending.
    cow_1DArrayList<cow_String> GetTableMetadataNames() const;
    void InsertInMapClassName2ClassVersion(const cow_String& name, int version);
    const cow_Map<cow_String, int>& GetMapClassName2ClassVersion() const;

    cow_1DArrayList<cow_String> GetObjStatistics(const rfm_Handle& handle) const;
    cow_1DArrayList<cow_String> GetDBStatistics() const;
    /// Which object the byte at `offset` of the file belongs to, as text: for diagnosing damage.
    cow_String GetObjectLocationReport(const utl_FileOffset& offset) const;

    /// A new space, and an existing one, which may be that of any object.
    /// Throws: nex_TextException for a handle without a space.
    rfm_Space Space(int quantum);
    rfm_Space Space(const rfm_Handle& handle, int quantum);
    /// A new table of a layout that was bound. `readAhead`: rows read at a time; below 0 means 32.
    rfm_Table Table(const cow_String& name, int quantum, int readAhead);
    rfm_Table Table(const rfm_TableMetadata& metadata, int quantum, int readAhead);
    /// An existing table, whose layout was bound.
    /// Throws: nex_TextException when the handle is not that of a table, or its layout was not bound.
    rfm_Table Table(rfm_Handle handle, int quantum, int readAhead);
    /// New arrays of `fieldCount` elements per row, and existing ones.
    /// Throws: nex_AssertException "repr->Type() == type" for an array of another type, nex_TextException when the
    /// handle is not that of an array.
    rfm_Array<int, rfm_TypeInt> ArrayInt(int fieldCount, int quantum, int bufferSize);
    rfm_Array<int, rfm_TypeInt> ArrayInt(rfm_Handle handle, int quantum, int bufferSize);
    rfm_Array<float, rfm_TypeFloat> ArrayFloat(int fieldCount, int quantum, int bufferSize);
    rfm_Array<float, rfm_TypeFloat> ArrayFloat(rfm_Handle handle, int quantum, int bufferSize);
    rfm_Array<double, rfm_TypeDouble> ArrayDouble(int fieldCount, int quantum, int bufferSize);
    rfm_Array<double, rfm_TypeDouble> ArrayDouble(rfm_Handle handle, int quantum, int bufferSize);
    rfm_Array<cow_String, rfm_TypeString> ArrayString(int fieldCount, int quantum, int bufferSize);
    rfm_Array<cow_String, rfm_TypeString> ArrayString(rfm_Handle handle, int quantum, int bufferSize);
    /// A new stream, and an existing one, which stands at its first item.
    /// Throws: nex_TextException when the handle is not that of a stream.
    rfm_TaggedStream TaggedStream(int bufferSize);
    rfm_TaggedStream TaggedStream(rfm_Handle handle, int bufferSize);

    rfm_DatabaseRepr& Repr() const { return *m_Object; }
};
