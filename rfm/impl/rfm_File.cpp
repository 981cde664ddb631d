#include "rfm_File.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "rfm_FileReprLocal.h"
#include "utl_File.h"
#include "utl_FilePath.h"
#include "utl_UrlParser.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

void cow_Deleter<rfm_FileRepr>::Delete(rfm_FileRepr* object) { delete object; }

namespace
{
constexpr char kCompressedMagic[] = "MRKTSA";
constexpr char kHdf5Signature[] = "\x89HDF\r\n\x1a\n";
constexpr int kCopyBytes = 4096;

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

bool IsCompressed(const cow_String& name) { return StartsWith(name, kCompressedMagic); }
bool IsHdf5(const cow_String& name) { return StartsWith(name, kHdf5Signature); }

[[noreturn]] void ThrowNoBackend(const char* kind, const cow_String& name)
{
    rfm_FileException(atr_Message("*** ERROR: %s files are not supported by this version:\n  %s", kind, name))
        .Throw(__FILE__, __LINE__);
}

void RefuseUrl(const cow_String& name)
{
    if (utl_UrlParser::IsUrl(name)) rfm_FileReadOnlyExc(name).Throw(__FILE__, __LINE__);
}

rfm_FileRepr* MakeNew(const cow_String& name, bool flag)
{
    RefuseUrl(name);
    if (std::getenv("MRK_HDF_RDX") != nullptr) ThrowNoBackend("HDF5 database", name);
    Log("*** Informational: Creating File based RDX.\n");
    return new rfm_FileReprLocal(name, utl_FileAccessCreate, flag);
}

rfm_FileRepr* OpenForUpdate(const cow_String& name, bool flag)
{
    RefuseUrl(name);
    const utl_FilePath path(name, "");
    if (!path.Exists()) rfm_FileNoSuchFile(name).Throw(__FILE__, __LINE__);
    if (!path.IsWriteable()) rfm_FileReadOnlyExc(name).Throw(__FILE__, __LINE__);
    if (IsCompressed(name)) ThrowNoBackend("Compressed database", name);
    if (IsHdf5(name)) ThrowNoBackend("HDF5 database", name);
    Log("*** Informational: Updating File based RDX.\n");
    return new rfm_FileReprLocal(name, utl_FileAccessUpdate, flag);
}

rfm_FileRepr* OpenForReading(const cow_String& name)
{
    const utl_FilePath path(name, "");
    if (!path.Exists()) rfm_FileNoSuchFile(name).Throw(__FILE__, __LINE__);
    if (!path.IsReadable()) rfm_FileNotReadable(name).Throw(__FILE__, __LINE__);
    if (utl_UrlParser::IsUrl(name)) ThrowNoBackend("Remote database", name);
    if (IsCompressed(name)) ThrowNoBackend("Compressed database", name);
    if (IsHdf5(name)) ThrowNoBackend("HDF5 database", name);
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
    ThrowNoBackend("Compressed database", name);
}

const cow_String& rfm_File::FileName() const { return Repr().FileName(); }
bool rfm_File::ReadOnly() const { return Repr().ReadOnly(); }

void rfm_File::Copy(const rfm_File& source)
{
    char buffer[kCopyBytes];
    for (int read = source.Repr().Read(buffer, kCopyBytes); read > 0;
         read = source.Repr().Read(buffer, kCopyBytes))
        Repr().Write(buffer, read);
}
