#pragma once

#include "nex_Exception.h"

/// A refusal of HDF5: what was asked, of which file, and HDF5's own words, from the cause up to the call.
class RFM_EXPORT hdf_Exception : public nex_TextException
{
public:
    /// `action` is a verb such as "open"; `errorStack` HDF5's account of it.
    hdf_Exception(const char* action, const cow_String& fileName, const cow_String& errorStack);
    ~hdf_Exception() override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};
