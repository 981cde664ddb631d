#pragma once

#include "Command.h"

namespace rfm_tool
{
std::unique_ptr<Command> MakeCheck();
} // namespace rfm_tool
