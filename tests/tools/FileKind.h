#pragma once

#include "EnvironmentVariable.h"
#include "rfm_File.h"

#include <cstdlib>
#include <stdexcept>
#include <string_view>

/// Makes a file of the kind that RFM_TEST_FILE_KIND names, a plain one without it: the suites over the local back end run
/// once for each kind (RFM_OTHER_KINDS in tests/CMakeLists.txt).
inline rfm_File NewFileOfKind(const cow_String& path)
{
    const char* kind = std::getenv("RFM_TEST_FILE_KIND");
    if (kind == nullptr) return rfm_File::Open(path, utl_FileAccessCreate);
    if (std::string_view(kind) == "compressed") return rfm_File::CreateCompressed(path);
    if (std::string_view(kind) == "hdf5")
    {
        const EnvironmentVariable asHdf5("MRK_HDF_RDX", "1");
        return rfm_File::Open(path, utl_FileAccessCreate);
    }
    throw std::runtime_error("no such kind of file");
}
