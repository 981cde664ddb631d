#pragma once

#include "cow_String.h"

/// The string pool as the streams see it: a text in a stream is a reference of fixed size into the pool.
class rfm_StringManager
{
public:
    virtual ~rfm_StringManager();
    /// Writes what the pool does not yet have in the file.
    virtual void Flush() = 0;
    /// Overwrites the stored text of a reference in place.
    virtual void Neuter(const char* reference, const cow_String& text) = 0;
    /// `count` references into texts.
    virtual void Decode(const char* source, cow_String* target, int count) = 0;
    /// `count` texts into references; new ones are added to the pool.
    virtual void Encode(char* target, const cow_String* source, int count) = 0;
    /// Bytes of a reference.
    virtual int ReferenceSize() = 0;
};
