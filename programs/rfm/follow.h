#pragma once

#include "Command.h"

namespace rfm_tool
{
std::unique_ptr<Command> MakeFollow();
} // namespace rfm_tool
