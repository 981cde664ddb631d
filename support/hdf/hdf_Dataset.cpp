#include "hdf_Dataset.h"

#include "hdf_Call.h"
#include "hdf_Sizes.h"

#include <algorithm>

hdf_Dataset::hdf_Dataset(hdf_Id id, const cow_String& fileName, bool readOnly)
    : hdf_Handle(id, H5Dclose, fileName),
      m_ReadOnly(readOnly)
{
}

hdf_Dataspace hdf_Dataset::GetSpace() const
{
    const hdf_Call call("look at the shape of a dataset of", FileName());
    return {call.Check(H5Dget_space(Id())), FileName()};
}

hdf_Datatype hdf_Dataset::GetType() const
{
    const hdf_Call call("look at the type of a dataset of", FileName());
    return {call.Check(H5Dget_type(Id())), FileName()};
}

hdf_PropListDatasetCreation hdf_Dataset::GetCreationPropList() const
{
    const hdf_Call call("look at the layout of a dataset of", FileName());
    return {call.Check(H5Dget_create_plist(Id())), FileName()};
}

void hdf_Dataset::Extend(const hdf_DimSpaceInput& size)
{
    const hdf_DimSpaceInput now = GetSpace().GetDims();
    hdf_DimSpaceInput grown;
    bool grows = false;
    for (int i = 0; i < size.Rank(); ++i)
    {
        grown.Append(i < now.Rank() ? std::max(size[i], now[i]) : size[i]);
        grows = grows || i >= now.Rank() || size[i] > now[i];
    }
    if (!grows) return;
    const hdf_Call call("extend a dataset of", FileName());
    call.Check(H5Dset_extent(Id(), hdf_Sizes(grown).OrNull()));
}

void hdf_Dataset::Read(const hdf_Datatype& memType, const hdf_Dataspace& memSpace,
                       const hdf_Dataspace& fileSpace, void* buffer) const
{
    const hdf_Call call("read", FileName());
    call.Check(H5Dread(Id(), memType.Id(), memSpace.Id(), fileSpace.Id(), H5P_DEFAULT, buffer));
}

void hdf_Dataset::Write(const hdf_Datatype& memType, const hdf_Dataspace& memSpace,
                        const hdf_Dataspace& fileSpace, const void* buffer)
{
    const hdf_Call call("write", FileName());
    call.Check(H5Dwrite(Id(), memType.Id(), memSpace.Id(), fileSpace.Id(), H5P_DEFAULT, buffer));
}

void hdf_Dataset::Flush()
{
    const hdf_Call call("flush", FileName());
    call.Check(H5Fflush(Id(), H5F_SCOPE_LOCAL));
}

std::int64_t hdf_Dataset::FileSize() const
{
    const hdf_Call call("look at", FileName());
    const hid_t file = call.Check(H5Iget_file_id(Id()));
    hsize_t size = 0;
    const herr_t result = H5Fget_filesize(file, &size);
    H5Fclose(file); // one reference of several: nothing is written by it
    call.Check(result);
    return static_cast<std::int64_t>(std::min<hsize_t>(size, INT64_MAX));
}
