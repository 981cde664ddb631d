#pragma once

#include <span>

/// Something that makes and reads zlib streams.
struct zip_Engine
{
    const char* name;
    int (*compress2)(unsigned char* target, unsigned long* targetLength, const unsigned char* source,
                     unsigned long sourceLength, int level);
    int (*uncompress)(unsigned char* target, unsigned long* targetLength, const unsigned char* source,
                      unsigned long sourceLength);
    bool (*uncompressFront)(unsigned char* target, unsigned long room, const unsigned char* source,
                            unsigned long sourceLength);
};

/// The engines of this build, the fastest first: that one does the work.
std::span<const zip_Engine> zip_Engines() noexcept;
