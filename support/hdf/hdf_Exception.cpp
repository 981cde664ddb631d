#include "hdf_Exception.h"

#include "atr_Translate.h"

hdf_Exception::hdf_Exception(const char* action, const cow_String& fileName, const cow_String& errorStack)
    : nex_TextException(
          atr_Message("*** ERROR: HDF5 can't %s file:\n  %s, reason:\n  %s.", action, fileName, errorStack))
{
}

hdf_Exception::~hdf_Exception() = default;
nex_Exception* hdf_Exception::Copy() const { return new hdf_Exception(*this); }
void hdf_Exception::Propagate() const { throw hdf_Exception(*this); }
cow_String hdf_Exception::AsString() const { return cow_String("hdf_Exception: ") + UserReport(); }
