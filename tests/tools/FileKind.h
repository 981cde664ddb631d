#pragma once

#include "EnvironmentVariable.h"
#include "rfm_File.h"

#include <cstdlib>
#include <stdexcept>
#include <string_view>

/// Makes a file of that kind: "plain", "compressed", "hdf5", or "remote", which is plain and read through an assistant.
inline rfm_File NewFileOfKind(const cow_String& path, std::string_view kind)
{
    if (kind == "plain" || kind == "remote") return rfm_File::Open(path, utl_FileAccessCreate);
    if (kind == "compressed") return rfm_File::CreateCompressed(path);
    if (kind == "hdf5")
    {
        const EnvironmentVariable asHdf5("MRK_HDF_RDX", "1");
        return rfm_File::Open(path, utl_FileAccessCreate);
    }
    throw std::runtime_error("no such kind of file");
}

/// Makes a file of the kind that RFM_TEST_FILE_KIND names, what the library makes by itself without it: the suites over
/// the local back end run once for each kind (RFM_OTHER_KINDS in tests/CMakeLists.txt).
inline rfm_File NewFileOfKind(const cow_String& path)
{
    const char* kind = std::getenv("RFM_TEST_FILE_KIND");
    return kind == nullptr ? rfm_File::Open(path, utl_FileAccessCreate) : NewFileOfKind(path, kind);
}

/// The name under which such a file is opened: for reading a "remote" one it is a URL, behind which the assistant of PATH
/// stands.
inline cow_String NameOfKind(const cow_String& path, utl_FileAccess access)
{
    const char* kind = std::getenv("RFM_TEST_FILE_KIND");
    const bool isRemote = kind != nullptr && std::string_view(kind) == "remote";
    return isRemote && access == utl_FileAccessRead ? cow_String("mrkrdb://localhost/") + path : path;
}
/// Opens a file that `NewFileOfKind(path)` has made.
inline rfm_File OpenFileOfKind(const cow_String& path, utl_FileAccess access)
{
    return rfm_File::Open(NameOfKind(path, access), access);
}
