#pragma once

#include "hdf_Group.h"

/// An HDF5 file, as its root group. Datasets opened in it keep it open after this object has gone.
/// HDF5 locks its files: a file that is being written can't be opened by another process, nor can one that is being
/// read be opened for update.
class hdf_File : public hdf_Group
{
public:
    static bool IsHdf5(const cow_String& name);
    /// Puts a fresh file under the name, so that readers of an older one keep it; `flags` 0.
    /// Throws: utl_FileException where the system refuses that.
    static hdf_File Create(const cow_String& name, int flags);
    /// `flags`: 0 update, 1 read.
    static hdf_File Open(const cow_String& name, int flags);

private:
    hdf_File(hdf_Id id, const cow_String& name, bool readOnly);
};
