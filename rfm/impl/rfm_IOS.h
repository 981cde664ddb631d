#pragma once

#include "rfm_IO.h"

class rfm_StringManager;

/// A stream in which texts are references into the string pool of its database.
class rfm_IOS : public rfm_IO
{
public:
    using rfm_IO::ReadArray;
    using rfm_IO::WriteArray;

    virtual rfm_StringManager* StringManager() = 0;
    virtual int ReadArray(cow_String* values, int count);
    virtual cow_String ReadString();
    virtual void WriteArray(const cow_String* values, int count);
    virtual void WriteString(const cow_String& text);

protected:
    rfm_IOS() = default;
    explicit rfm_IOS(bool swapped) noexcept : rfm_IO(swapped) {}
};
