#pragma once

#include "cow_String.h"

#include <cstdint>

/// An identifier that HDF5 gave out.
using hdf_Id = std::int64_t;

/// The one owner of one HDF5 identifier, and the name of the file for what may be said about it.
/// Moved from, it owns nothing. A close that fails in the destructor is one line on standard error.
class hdf_Handle
{
public:
    hdf_Handle(hdf_Handle&& source) noexcept;
    hdf_Handle& operator=(hdf_Handle&& source) noexcept;
    hdf_Handle(const hdf_Handle&) = delete;
    hdf_Handle& operator=(const hdf_Handle&) = delete;

    hdf_Id Id() const noexcept { return m_Id; }
    const cow_String& FileName() const noexcept { return m_FileName; }

protected:
    /// Gives the identifier back to HDF5; negative on failure.
    using Closer = int (*)(hdf_Id id);

    /// Without a closer the identifier is HDF5's own and stays.
    hdf_Handle(hdf_Id id, Closer close, const cow_String& fileName) noexcept
        : m_Id(id),
          m_Close(close),
          m_FileName(fileName)
    {
    }
    ~hdf_Handle();

private:
    hdf_Id m_Id;
    Closer m_Close;
    cow_String m_FileName;
};
