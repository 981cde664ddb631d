#pragma once

#include "Command.h"

namespace rfm_tool
{
std::unique_ptr<Command> MakeUnlock();
} // namespace rfm_tool
