#pragma once

#include "nex_Exception.h"

/// A value that a command can't have.
class RFM_EXPORT omu_ValueErrorException : public nex_CommandException
{
public:
    using nex_CommandException::nex_CommandException;
    ~omu_ValueErrorException() override;
    static int TypeId() noexcept;
    int DynTypeId() const override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String AsString() const override;
};
