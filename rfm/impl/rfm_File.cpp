#include "rfm_File.h"

#include "hdf_File.h"
#include "nex_Exception.h"
#include "rfm_CodecZip.h"
#include "rfm_EncodedFormat.h"
#include "rfm_FileReprEncoded.h"
#include "rfm_FileReprHdf.h"
#include "rfm_FileReprLocal.h"
#include "rfm_FileReprRemote.h"
#include "rfm_SectorFormat.h"
#include "utl_File.h"
#include "utl_FilePath.h"
#include "utl_UrlParser.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

void cow_Deleter<rfm_FileRepr>::Delete(rfm_FileRepr* object) { delete object; }

namespace
{
constexpr char kPlainMagic[] = "TVNR";
constexpr char kHdfDatasetName[] = "rfm";
constexpr int kCopyBytes = 4096;
constexpr int kCompressionLevel = 6;

void Log(const char* line)
{
    if (std::getenv("MRK_RFM_LOGIFY") == nullptr) return;
    std::fputs(line, stderr);
    std::fflush(stderr);
}

// A file that is shorter than the magic compares unequal.
bool StartsWith(const cow_String& name, std::string_view magic)
{
    char bytes[8] = {};
    utl_File file(name, utl_FileAccessRead, 0);
    const int read = file.Read(bytes, static_cast<int>(magic.size()));
    return std::string_view(bytes, static_cast<std::size_t>(read)) == magic;
}

bool IsCompressed(const cow_String& name) { return StartsWith(name, rfm_SectorMagicStart); }
// HDF5 looks for its mark at 0 and at powers of two from 512 on, where a plain database may hold anything.
bool IsHdf5(const cow_String& name) { return !StartsWith(name, kPlainMagic) && hdf_File::IsHdf5(name); }

std::unique_ptr<rfm_Codec> NewCodec() { return std::make_unique<rfm_CodecZip>(kCompressionLevel); }

rfm_FileRepr* OpenCompressed(const char* log, const cow_String& name, utl_FileAccess access)
{
    Log(log);
    return new rfm_FileReprEncoded(name, access, NewCodec());
}

void RefuseUrl(const cow_String& name)
{
    if (utl_UrlParser::IsUrl(name)) rfm_FileReadOnlyExc(name).Throw(__FILE__, __LINE__);
}

// The HDF5 file itself stays open as long as the dataset in it.
rfm_FileRepr* MakeNewHdf5(const cow_String& name)
{
    Log("*** Informational: Creating HDF5 based RDX.\n");
    hdf_File file = hdf_File::Create(name, 0);
    return new rfm_FileReprHdf(name, file, kHdfDatasetName, utl_FileAccessCreate);
}

rfm_FileRepr* OpenHdf5ForUpdate(const cow_String& name)
{
    Log("*** Informational: Updating HDF5 based RDX.\n");
    hdf_File file = hdf_File::Open(name, 0);
    return new rfm_FileReprHdf(name, file, kHdfDatasetName, utl_FileAccessUpdate);
}

rfm_FileRepr* OpenHdf5ForReading(const cow_String& name)
{
    Log("*** Informational: Opening HDF5 based RDX.\n");
    hdf_File file = hdf_File::Open(name, 1);
    return new rfm_FileReprHdf(name, file, kHdfDatasetName, utl_FileAccessRead);
}

rfm_FileRepr* MakeNew(const cow_String& name, bool flag)
{
    RefuseUrl(name);
    if (std::getenv("MRK_HDF_RDX") != nullptr) return MakeNewHdf5(name);
    Log("*** Informational: Creating File based RDX.\n");
    return new rfm_FileReprLocal(name, utl_FileAccessCreate, flag);
}

rfm_FileRepr* OpenForUpdate(const cow_String& name, bool flag)
{
    RefuseUrl(name);
    const utl_FilePath path(name, "");
    if (!path.Exists()) rfm_FileNoSuchFile(name).Throw(__FILE__, __LINE__);
    if (!path.IsWriteable()) rfm_FileReadOnlyExc(name).Throw(__FILE__, __LINE__);
    if (IsCompressed(name))
        return OpenCompressed("*** Informational: Updating Compressed File based SDX.\n", name,
                              utl_FileAccessUpdate);
    if (IsHdf5(name)) return OpenHdf5ForUpdate(name);
    Log("*** Informational: Updating File based RDX.\n");
    return new rfm_FileReprLocal(name, utl_FileAccessUpdate, flag);
}

rfm_FileRepr* OpenForReading(const cow_String& name)
{
    const utl_FilePath path(name, "");
    if (!path.Exists()) rfm_FileNoSuchFile(name).Throw(__FILE__, __LINE__);
    if (!path.IsReadable()) rfm_FileNotReadable(name).Throw(__FILE__, __LINE__);
    if (utl_UrlParser::IsUrl(name)) return new rfm_FileReprRemote(name);
    if (IsCompressed(name))
        return OpenCompressed("*** Informational: Opening Compressed File based SDX.\n", name,
                              utl_FileAccessRead);
    if (IsHdf5(name)) return OpenHdf5ForReading(name);
    Log("*** Informational: Opening File based RDX.\n");
    return new rfm_FileReprLocal(name, utl_FileAccessRead, true);
}
} // namespace

// The order of the tests is fixed: compressed before HDF5, both before plain, which needs no test: whether a plain
// file is a database shows when one is opened on it.
rfm_File rfm_File::Open(const cow_String& name, utl_FileAccess access, bool flag)
{
    switch (access)
    {
    case utl_FileAccessCreate: return rfm_File(MakeNew(name, flag));
    case utl_FileAccessUpdate: return rfm_File(OpenForUpdate(name, flag));
    case utl_FileAccessRead: return rfm_File(OpenForReading(name));
    }
    nex_ThrowAssert("!\"Incorrect file access.\"");
}

rfm_File rfm_File::CreateCompressed(const cow_String& name)
{
    RefuseUrl(name);
    Log("*** Informational: Creating Compressed File based SDX.\n");
    return rfm_File(new rfm_FileReprEncoded(name, NewCodec(), rfm_EncodedSegmentBytes));
}

const cow_String& rfm_File::FileName() const { return Repr().FileName(); }
bool rfm_File::ReadOnly() const { return Repr().ReadOnly(); }

void rfm_File::Copy(const rfm_File& source)
{
    char buffer[kCopyBytes];
    for (int read = source.Repr().ReadUpToEnd(buffer, kCopyBytes); read > 0;
         read = source.Repr().ReadUpToEnd(buffer, kCopyBytes))
        Repr().Write(buffer, read);
}
