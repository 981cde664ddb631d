#pragma once

#include <cstdint>
#include <initializer_list>

/// The lengths, starts or counts along each dimension that an operation takes. -1 as a length means unlimited; an empty
/// one leaves the choice to the operation.
class hdf_DimSpaceInput
{
public:
    static constexpr int kMostDimensions = 32; // as many as HDF5 knows
    static constexpr std::int64_t kUnlimited = -1;

    hdf_DimSpaceInput() noexcept = default;
    /// Throws: nex_AssertException for more dimensions than HDF5 knows.
    hdf_DimSpaceInput(std::initializer_list<std::int64_t> values) { Set(values.begin(), values.end()); }

    bool IsEmpty() const noexcept { return m_Rank == 0; }
    int Rank() const noexcept { return m_Rank; }
    std::int64_t operator[](int dimension) const noexcept { return m_Values[dimension]; }
    void Append(std::int64_t value);

private:
    void Set(const std::int64_t* first, const std::int64_t* last);

    int m_Rank = 0;
    std::int64_t m_Values
        [kMostDimensions]; // the first m_Rank of them count; the rest stays unset, as this is made often
};
