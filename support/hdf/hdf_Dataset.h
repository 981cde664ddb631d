#pragma once

#include "hdf_Dataspace.h"
#include "hdf_Datatype.h"
#include "hdf_PropList.h"

/// An open dataset. It keeps its file open.
class hdf_Dataset : public hdf_Handle
{
public:
    bool ReadOnly() const noexcept { return m_ReadOnly; }

    /// The shape that it has now.
    hdf_Dataspace GetSpace() const;
    hdf_Datatype GetType() const;
    hdf_PropListDatasetCreation GetCreationPropList() const;
    /// Grows to at least `size`; never shrinks.
    void Extend(const hdf_DimSpaceInput& size);
    /// Moves the elements selected in `fileSpace` to those selected in `memSpace` of `buffer`, which is the caller's
    /// and as large as that shape says.
    void Read(const hdf_Datatype& memType, const hdf_Dataspace& memSpace, const hdf_Dataspace& fileSpace,
              void* buffer) const;
    void Write(const hdf_Datatype& memType, const hdf_Dataspace& memSpace, const hdf_Dataspace& fileSpace,
               const void* buffer);
    /// Hands what HDF5 keeps of the whole file to the operating system.
    void Flush();
    /// The size of the file around it: no dataset holds more bytes, whatever it claims.
    std::int64_t FileSize() const;

private:
    friend class hdf_Group;
    hdf_Dataset(hdf_Id id, const cow_String& fileName, bool readOnly);

    bool m_ReadOnly;
};
