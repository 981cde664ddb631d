#pragma once

#include "cow_String.h"
#include "hdf_Handle.h"

#include <hdf5.h>
#include <type_traits>

static_assert(std::is_same_v<hid_t, hdf_Id>,
              "identifiers go through the headers of hdf_ without those of HDF5");

/// Stands around the calls of one operation on HDF5. While it stands, HDF5 prints nothing, and no other thread of the
/// process is inside `hdf_`, unless HDF5 itself is built for threads: two databases may live in two threads.
/// What the program has set for its own use of HDF5 is put back.
class hdf_Call
{
public:
    hdf_Call(const char* action, const cow_String& fileName);
    hdf_Call(const hdf_Call&) = delete;
    hdf_Call& operator=(const hdf_Call&) = delete;
    ~hdf_Call();

    /// Hands on the result of a call. Throws: hdf_Exception with HDF5's error stack when it is negative.
    template <class Result>
    Result Check(Result result, const char* sourceName = __builtin_FILE(), int line = __builtin_LINE()) const
    {
        if (result < 0) Fail(sourceName, line);
        return result;
    }

private:
    [[noreturn]] void Fail(const char* sourceName, int line) const;

    const char* m_Action;
    const cow_String& m_FileName;
    // The function that prints, in one of the two forms that HDF5 knows for it.
    unsigned m_IsSecondForm = 1;
    H5E_auto1_t m_FirstForm = nullptr;
    H5E_auto2_t m_SecondForm = nullptr;
    void* m_PrintData = nullptr;
};
