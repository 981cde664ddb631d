#pragma once

#include "Command.h"

namespace rfm_tool
{
std::unique_ptr<Command> MakeRows();
std::unique_ptr<Command> MakeHead();
std::unique_ptr<Command> MakeTail();
} // namespace rfm_tool
