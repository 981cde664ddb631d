#pragma once

#include "hdf_DimSpaceInput.h"
#include "hdf_Handle.h"

#include <cstddef>

/// How the elements of a dataset are laid out in its file.
class hdf_PropListDatasetCreation : public hdf_Handle
{
public:
    /// Layouts are numbered: 0 in the object's head, 1 in one piece, 2 in chunks, 3 in other datasets.
    static constexpr int kChunked = 2;

    hdf_PropListDatasetCreation();

    void SetLayout(int layout);
    int GetLayout() const;
    /// The lengths of a chunk along each dimension.
    void SetChunk(const hdf_DimSpaceInput& dims);
    hdf_DimSpaceInput GetChunk() const;
    /// How many filters bytes pass on their way.
    int FilterCount() const;

private:
    friend class hdf_Dataset;
    hdf_PropListDatasetCreation(hdf_Id id, const cow_String& fileName);
};

/// How an open dataset is dealt with in memory.
class hdf_PropListDatasetAccess : public hdf_Handle
{
public:
    hdf_PropListDatasetAccess();

    /// How many bytes of chunks HDF5 keeps; with 0, every transfer goes between the caller's memory and the file.
    void SetChunkCache(std::size_t bytes);
};

/// How an open file is dealt with.
class hdf_PropListFileAccess : public hdf_Handle
{
public:
    hdf_PropListFileAccess();

    /// How many bytes of its own structures HDF5 keeps. What is changed goes to the file only in a flush, as long as it
    /// fits.
    void SetMetadataCache(std::size_t bytes);
};
