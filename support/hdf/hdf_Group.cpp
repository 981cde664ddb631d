#include "hdf_Group.h"

#include "hdf_Call.h"

bool hdf_Group::HasOwn(const cow_String& name) const
{
    const hdf_Call call("look at the names in", FileName());
    if (call.Check(H5Lexists(Id(), name.CString(), H5P_DEFAULT)) == 0) return false;
    H5L_info_t link;
    call.Check(H5Lget_info(Id(), name.CString(), &link, H5P_DEFAULT));
    return link.type == H5L_TYPE_HARD;
}

hdf_Dataset hdf_Group::DatasetOpen(const cow_String& name, const hdf_PropListDatasetAccess& access) const
{
    const hdf_Call call("open a dataset of", FileName());
    return {call.Check(H5Dopen2(Id(), name.CString(), access.Id())), FileName(), m_ReadOnly};
}

hdf_Dataset hdf_Group::DatasetCreate(const cow_String& name, const hdf_Datatype& type,
                                     const hdf_Dataspace& space, const hdf_PropListDatasetCreation& propList,
                                     const hdf_PropListDatasetAccess& access)
{
    const hdf_Call call("create a dataset of", FileName());
    return {call.Check(H5Dcreate2(Id(), name.CString(), type.Id(), space.Id(), H5P_DEFAULT, propList.Id(),
                                  access.Id())),
            FileName(), m_ReadOnly};
}
