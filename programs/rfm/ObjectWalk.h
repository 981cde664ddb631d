#pragma once

#include "DamageList.h"
#include "PoolWalk.h"
#include "SpaceBytes.h"

namespace rfm_tool
{
/// What the objects of a file refer to.
struct Pools
{
    StringRecords strings;
    LayoutRecords layouts;
};

/// One object of a file that may be damaged.
struct ObjectBytes
{
    std::uint32_t handle = 0;
    bool isWhole = true; // its whole chain can be read; otherwise its end is not judged
    SpaceBytes bytes;
};

/// Walks the content of a table, an array or a stream, whatever its first word says that it is; anything else is
/// the application's own and can't be judged.
void WalkObject(ObjectBytes& object, const Pools& pools, DamageList& damages);
} // namespace rfm_tool
