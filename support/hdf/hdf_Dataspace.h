#pragma once

#include "hdf_DimSpaceInput.h"
#include "hdf_Handle.h"

/// The shape of a dataset or of a block of memory, and the elements of it that are selected for a transfer.
class hdf_Dataspace : public hdf_Handle
{
public:
    /// How a selection meets the one before.
    enum SelectOp
    {
        Replace = 0
    };

    /// `maxDims` empty: as `dims`. A length of -1 there: unlimited.
    static hdf_Dataspace CreateSimple(const hdf_DimSpaceInput& dims, const hdf_DimSpaceInput& maxDims);

    /// Lengths beyond 2^63 - 1 are given as that.
    hdf_DimSpaceInput GetDims() const;
    /// How long it may get in each dimension; kUnlimited where nothing bounds it.
    hdf_DimSpaceInput GetMaxDims() const;
    /// Gives it another shape, which can't grow, and selects all of it.
    void SetDims(const hdf_DimSpaceInput& dims);
    /// `count` blocks of the size `block`, from `start` on, `stride` apart; an empty stride is 1.
    void SelectHyperslab(SelectOp op, const hdf_DimSpaceInput& start, const hdf_DimSpaceInput& stride,
                         const hdf_DimSpaceInput& count, const hdf_DimSpaceInput& block);

private:
    friend class hdf_Dataset;
    hdf_Dataspace(hdf_Id id, const cow_String& fileName);
};
