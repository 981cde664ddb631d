#include "hdf_PropList.h"

#include "hdf_Call.h"
#include "hdf_Sizes.h"

#include <algorithm>

namespace
{
hdf_Id NewList(hid_t (*listClass)())
{
    const cow_String noFile;
    const hdf_Call call("make the properties of a", noFile);
    return call.Check(H5Pcreate(listClass()));
}
} // namespace

// The names of HDF5's classes of lists may start HDF5, so they are read within a call.
hdf_PropListDatasetCreation::hdf_PropListDatasetCreation()
    : hdf_Handle(NewList([] { return H5P_DATASET_CREATE; }), H5Pclose, {})
{
}

hdf_PropListDatasetCreation::hdf_PropListDatasetCreation(hdf_Id id, const cow_String& fileName)
    : hdf_Handle(id, H5Pclose, fileName)
{
}

void hdf_PropListDatasetCreation::SetLayout(int layout)
{
    const hdf_Call call("set the layout of a dataset of", FileName());
    call.Check(H5Pset_layout(Id(), static_cast<H5D_layout_t>(layout)));
}

int hdf_PropListDatasetCreation::GetLayout() const
{
    const hdf_Call call("look at the layout of a dataset of", FileName());
    return call.Check(static_cast<int>(H5Pget_layout(Id())));
}

void hdf_PropListDatasetCreation::SetChunk(const hdf_DimSpaceInput& dims)
{
    const hdf_Call call("set the chunks of a dataset of", FileName());
    call.Check(H5Pset_chunk(Id(), dims.Rank(), hdf_Sizes(dims).OrNull()));
}

hdf_DimSpaceInput hdf_PropListDatasetCreation::GetChunk() const
{
    const hdf_Call call("look at the chunks of a dataset of", FileName());
    hsize_t sizes[hdf_DimSpaceInput::kMostDimensions] = {};
    const int rank = call.Check(H5Pget_chunk(Id(), hdf_DimSpaceInput::kMostDimensions, sizes));
    hdf_DimSpaceInput dims;
    for (int i = 0; i < rank; ++i) dims.Append(static_cast<std::int64_t>(sizes[i]));
    return dims;
}

int hdf_PropListDatasetCreation::FilterCount() const
{
    const hdf_Call call("look at the filters of a dataset of", FileName());
    return call.Check(H5Pget_nfilters(Id()));
}
static_assert(H5D_CHUNKED == hdf_PropListDatasetCreation::kChunked);

hdf_PropListDatasetAccess::hdf_PropListDatasetAccess()
    : hdf_Handle(NewList([] { return H5P_DATASET_ACCESS; }), H5Pclose, {})
{
}

void hdf_PropListDatasetAccess::SetChunkCache(std::size_t bytes)
{
    const hdf_Call call("set the cache of a dataset of", FileName());
    call.Check(H5Pset_chunk_cache(Id(), H5D_CHUNK_CACHE_NSLOTS_DEFAULT, bytes, H5D_CHUNK_CACHE_W0_DEFAULT));
}

// The driver is named, because the environment may name another one, which would not give out its descriptor.
hdf_PropListFileAccess::hdf_PropListFileAccess()
    : hdf_Handle(NewList([] { return H5P_FILE_ACCESS; }), H5Pclose, {})
{
    const hdf_Call call("choose the driver of a", FileName());
    call.Check(H5Pset_fapl_sec2(Id()));
}

void hdf_PropListFileAccess::SetMetadataCache(std::size_t bytes)
{
    const hdf_Call call("set the cache of a", FileName());
    H5AC_cache_config_t config{};
    config.version = H5AC__CURR_CACHE_CONFIG_VERSION;
    call.Check(H5Pget_mdc_config(Id(), &config));
    config.set_initial_size = true;
    config.initial_size = bytes;
    config.max_size = bytes;
    config.incr_mode = H5C_incr__off;
    config.flash_incr_mode = H5C_flash_incr__off;
    config.decr_mode = H5C_decr__off;
    call.Check(H5Pset_mdc_config(Id(), &config));
}
