#pragma once

#include "cow_String.h"

#include <hdf5.h>
#include <stdexcept>
#include <string_view>
#include <vector>

/// HDF5 files as another program makes them, straight through the C library.
namespace HdfFileMaker
{
/// A shape of dataset; what is given is right for a database, and a test changes one thing.
struct Dataset
{
    const char* name = "rfm";
    hid_t type = H5T_STD_I8LE;
    std::vector<hsize_t> dims{16384};
    std::vector<hsize_t> maxDims{H5S_UNLIMITED};
    H5D_layout_t layout = H5D_CHUNKED;
    hsize_t chunk = 4096;
    bool deflated = false;
    const char* external = nullptr; // a file that holds the bytes
    std::string_view bytes{};       // written at 0
};

template <class Result> Result Checked(Result result)
{
    if (result < 0) throw std::runtime_error("HDF5 refused what a test asked for");
    return result;
}

inline void Add(hid_t file, const Dataset& wanted)
{
    const hid_t layout = Checked(H5Pcreate(H5P_DATASET_CREATE));
    const std::vector<hsize_t> chunks(wanted.dims.size(), wanted.chunk);
    Checked(H5Pset_layout(layout, wanted.layout));
    if (wanted.layout == H5D_CHUNKED)
        Checked(H5Pset_chunk(layout, static_cast<int>(chunks.size()), chunks.data()));
    if (wanted.deflated) Checked(H5Pset_deflate(layout, 6));
    if (wanted.external != nullptr) Checked(H5Pset_external(layout, wanted.external, 0, H5F_UNLIMITED));
    const hid_t space =
        Checked(H5Screate_simple(static_cast<int>(wanted.dims.size()), wanted.dims.data(),
                                 wanted.layout == H5D_CHUNKED ? wanted.maxDims.data() : nullptr));
    const hid_t dataset =
        Checked(H5Dcreate2(file, wanted.name, wanted.type, space, H5P_DEFAULT, layout, H5P_DEFAULT));
    if (!wanted.bytes.empty())
    {
        const hsize_t start = 0;
        const hsize_t count = wanted.bytes.size();
        const hid_t memory = Checked(H5Screate_simple(1, &count, nullptr));
        Checked(H5Sselect_hyperslab(space, H5S_SELECT_SET, &start, nullptr, &count, nullptr));
        Checked(H5Dwrite(dataset, H5T_NATIVE_SCHAR, memory, space, H5P_DEFAULT, wanted.bytes.data()));
        H5Sclose(memory);
    }
    H5Dclose(dataset);
    H5Sclose(space);
    H5Pclose(layout);
}

/// Makes a file and hands it to `fill`, which adds to it.
template <class Fill> void Make(const cow_String& name, Fill fill)
{
    const hid_t file = Checked(H5Fcreate(name.CString(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT));
    fill(file);
    Checked(H5Fclose(file));
}

/// A whole file with one dataset.
inline void Make(const cow_String& name, const Dataset& wanted)
{
    Make(name, [&](hid_t file) { Add(file, wanted); });
}

/// How many objects of HDF5 are open in this process: files, datasets and all.
inline long OpenObjects() { return H5Fget_obj_count(static_cast<hid_t>(H5F_OBJ_ALL), H5F_OBJ_ALL); }
} // namespace HdfFileMaker
