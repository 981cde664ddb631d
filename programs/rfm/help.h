#pragma once

#include "Command.h"

namespace rfm_tool
{
/// `rfm help TOPIC`. Help of all commands and of one is the tool's own matter.
std::unique_ptr<Command> MakeHelp();
} // namespace rfm_tool
