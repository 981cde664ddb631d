#pragma once

#include "rfm_Handle.h"
#include "rfm_IOS.h"

/// A seekable, growable byte stream of a database, named by its handle.
class rfm_SpaceRepr : public rfm_IOS
{
public:
    virtual rfm_Handle Handle() const = 0;
    virtual utl_FileOffset Allocation() const = 0;
    virtual void Truncate(utl_FileOffset length) = 0;
};
