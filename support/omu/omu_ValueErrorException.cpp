#include "omu_ValueErrorException.h"

#include "omu_StoredClasses.h"

omu_ValueErrorException::~omu_ValueErrorException() = default;

int omu_ValueErrorException::TypeId() noexcept { return typ_TypeId(omu_LibraryNumber, omu_RowValueError); }
int omu_ValueErrorException::DynTypeId() const { return TypeId(); }
nex_Exception* omu_ValueErrorException::Copy() const { return new omu_ValueErrorException(*this); }
void omu_ValueErrorException::Propagate() const { throw omu_ValueErrorException(*this); }
cow_String omu_ValueErrorException::AsString() const
{
    return cow_String("omu_ValueErrorException: ") + UserReport();
}
