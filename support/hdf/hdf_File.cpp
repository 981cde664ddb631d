#include "hdf_File.h"

#include "hdf_Call.h"
#include "nex_Exception.h"
#include "utl_File.h"

#include <fcntl.h>

namespace
{
constexpr int kOpenForReading = 1;

// The index of a dataset of some 1.5 GiB. Within that, what a killed writer leaves is the file of its last flush:
// HDF5 puts structures that it has to drop in between into the file one by one, where they don't fit the others.
constexpr std::size_t kMetadataBytes = 32 * 1024 * 1024;

hdf_PropListFileAccess FileAccess()
{
    hdf_PropListFileAccess access;
    access.SetMetadataCache(kMetadataBytes);
    return access;
}

// HDF5 lets programs that are started from this one inherit its descriptors.
void KeepFromChildren(const hdf_Call& call, hid_t file)
{
    void* descriptor = nullptr;
    call.Check(H5Fget_vfd_handle(file, H5P_DEFAULT, &descriptor));
    static_cast<void>(::fcntl(*static_cast<int*>(descriptor), F_SETFD, FD_CLOEXEC));
}
} // namespace

hdf_File::hdf_File(hdf_Id id, const cow_String& name, bool readOnly) : hdf_Group(id, H5Fclose, name, readOnly)
{
    const hdf_Call call("look at", name);
    KeepFromChildren(call, id);
}

bool hdf_File::IsHdf5(const cow_String& name)
{
    const hdf_Call call("look at", name);
    return call.Check(H5Fis_hdf5(name.CString())) > 0;
}

// HDF5 can only refuse an older file or empty it under the feet of its readers, so the fresh one is made first.
hdf_File hdf_File::Create(const cow_String& name, int flags)
{
    if (flags != 0) nex_ThrowAssert("flags == 0");
    utl_File(name, utl_FileAccessCreate, 0).Close();
    const hdf_PropListFileAccess access = FileAccess();
    const hdf_Call call("create", name);
    return {call.Check(H5Fcreate(name.CString(), H5F_ACC_TRUNC, H5P_DEFAULT, access.Id())), name, false};
}

hdf_File hdf_File::Open(const cow_String& name, int flags)
{
    const bool readOnly = flags == kOpenForReading;
    const hdf_PropListFileAccess access = FileAccess();
    const hdf_Call call("open", name);
    return {call.Check(H5Fopen(name.CString(), readOnly ? H5F_ACC_RDONLY : H5F_ACC_RDWR, access.Id())), name,
            readOnly};
}
