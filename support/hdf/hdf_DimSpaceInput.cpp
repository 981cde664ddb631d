#include "hdf_DimSpaceInput.h"

#include "nex_Exception.h"

void hdf_DimSpaceInput::Append(std::int64_t value)
{
    if (m_Rank == kMostDimensions) nex_ThrowAssert("m_Rank < kMostDimensions");
    m_Values[m_Rank++] = value;
}

void hdf_DimSpaceInput::Set(const std::int64_t* first, const std::int64_t* last)
{
    for (; first != last; ++first) Append(*first);
}
