#include "hdf_Dataspace.h"

#include "hdf_Call.h"
#include "hdf_Sizes.h"

#include <algorithm>

hdf_Dataspace::hdf_Dataspace(hdf_Id id, const cow_String& fileName) : hdf_Handle(id, H5Sclose, fileName) {}

hdf_Dataspace hdf_Dataspace::CreateSimple(const hdf_DimSpaceInput& dims, const hdf_DimSpaceInput& maxDims)
{
    const cow_String noFile;
    const hdf_Call call("make the shape of a", noFile);
    return {call.Check(H5Screate_simple(dims.Rank(), hdf_Sizes(dims).OrNull(), hdf_Sizes(maxDims).OrNull())),
            noFile};
}

hdf_DimSpaceInput hdf_Dataspace::GetDims() const
{
    const hdf_Call call("look at the shape of a dataset of", FileName());
    hsize_t sizes[hdf_DimSpaceInput::kMostDimensions] = {};
    const int rank = call.Check(H5Sget_simple_extent_dims(Id(), sizes, nullptr));
    hdf_DimSpaceInput dims;
    for (int i = 0; i < rank; ++i)
        dims.Append(static_cast<std::int64_t>(std::min<hsize_t>(sizes[i], INT64_MAX)));
    return dims;
}

hdf_DimSpaceInput hdf_Dataspace::GetMaxDims() const
{
    const hdf_Call call("look at the shape of a dataset of", FileName());
    hsize_t sizes[hdf_DimSpaceInput::kMostDimensions] = {};
    const int rank = call.Check(H5Sget_simple_extent_dims(Id(), nullptr, sizes));
    hdf_DimSpaceInput dims;
    for (int i = 0; i < rank; ++i)
        dims.Append(sizes[i] == H5S_UNLIMITED
                        ? hdf_DimSpaceInput::kUnlimited
                        : static_cast<std::int64_t>(std::min<hsize_t>(sizes[i], INT64_MAX)));
    return dims;
}

void hdf_Dataspace::SetDims(const hdf_DimSpaceInput& dims)
{
    const hdf_Call call("change the shape of a transfer with", FileName());
    call.Check(H5Sset_extent_simple(Id(), dims.Rank(), hdf_Sizes(dims).OrNull(), nullptr));
}

void hdf_Dataspace::SelectHyperslab(SelectOp op, const hdf_DimSpaceInput& start,
                                    const hdf_DimSpaceInput& stride, const hdf_DimSpaceInput& count,
                                    const hdf_DimSpaceInput& block)
{
    const hdf_Call call("choose the elements of a transfer with", FileName());
    call.Check(H5Sselect_hyperslab(Id(), static_cast<H5S_seloper_t>(op), hdf_Sizes(start).OrNull(),
                                   hdf_Sizes(stride).OrNull(), hdf_Sizes(count).OrNull(),
                                   hdf_Sizes(block).OrNull()));
}
static_assert(H5S_SELECT_SET == static_cast<int>(hdf_Dataspace::Replace));
