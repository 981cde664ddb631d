#pragma once

#include "hdf_DimSpaceInput.h"

#include <hdf5.h>

/// Dimensions as HDF5 takes them; -1 becomes its mark for an unlimited one.
class hdf_Sizes
{
public:
    explicit hdf_Sizes(const hdf_DimSpaceInput& dims) noexcept : m_Rank(dims.Rank())
    {
        for (int i = 0; i < m_Rank; ++i) m_Sizes[i] = static_cast<hsize_t>(dims[i]);
    }
    /// Null when there are none, by which HDF5 takes its own choice.
    const hsize_t* OrNull() const noexcept { return m_Rank > 0 ? m_Sizes : nullptr; }

private:
    int m_Rank;
    hsize_t m_Sizes[hdf_DimSpaceInput::kMostDimensions];
};
static_assert(static_cast<hsize_t>(hdf_DimSpaceInput::kUnlimited) == H5S_UNLIMITED);
static_assert(hdf_DimSpaceInput::kMostDimensions == H5S_MAX_RANK);
