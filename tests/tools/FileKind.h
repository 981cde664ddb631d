#pragma once

#include "EnvironmentVariable.h"
#include "rfm_File.h"

#include <cstdlib>
#include <stdexcept>
#include <string_view>

/// Makes a file of that kind: "plain", "compressed" or "hdf5".
inline rfm_File NewFileOfKind(const cow_String& path, std::string_view kind)
{
    if (kind == "plain") return rfm_File::Open(path, utl_FileAccessCreate);
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
