#pragma once

#include "hdf_Dataset.h"

/// A group of an HDF5 file: names for datasets and other groups.
class hdf_Group : public hdf_Handle
{
public:
    bool ReadOnly() const noexcept { return m_ReadOnly; }

    /// Whether `name` is there and is an object of this file, not a pointer to one by a path or into another file.
    bool HasOwn(const cow_String& name) const;
    hdf_Dataset DatasetOpen(const cow_String& name,
                            const hdf_PropListDatasetAccess& access = hdf_PropListDatasetAccess()) const;
    hdf_Dataset DatasetCreate(const cow_String& name, const hdf_Datatype& type, const hdf_Dataspace& space,
                              const hdf_PropListDatasetCreation& propList,
                              const hdf_PropListDatasetAccess& access = hdf_PropListDatasetAccess());

protected:
    hdf_Group(hdf_Id id, Closer close, const cow_String& fileName, bool readOnly) noexcept
        : hdf_Handle(id, close, fileName),
          m_ReadOnly(readOnly)
    {
    }

private:
    bool m_ReadOnly;
};
