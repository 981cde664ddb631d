#include "hdf_Datatype.h"

#include "hdf_Call.h"

static hdf_Id IdOf(hdf_Datatype::Standard type)
{
    const cow_String noFile;
    const hdf_Call call("start for a", noFile); // the names of the types below may start HDF5
    return type == hdf_Datatype::STD_I8LE ? H5T_STD_I8LE : H5T_NATIVE_SCHAR;
}

hdf_Datatype::hdf_Datatype(Standard type) : hdf_Handle(IdOf(type), nullptr, {}) {}
hdf_Datatype::hdf_Datatype(hdf_Id id, const cow_String& fileName) : hdf_Handle(id, H5Tclose, fileName) {}

bool hdf_Datatype::IsSameAs(const hdf_Datatype& other) const
{
    const hdf_Call call("look at the type of a dataset of", FileName());
    return call.Check(H5Tequal(Id(), other.Id())) > 0;
}
