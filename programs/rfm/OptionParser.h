#pragma once

#include "Command.h"

#include <optional>
#include <string>
#include <vector>

namespace rfm_tool
{
/// Puts what the words of a line say into the variables of a command's options.
/// Result: the help, when the words ask for it: the command is not to run then.
/// Throws: Failure, for words that don't fit.
std::optional<std::string> ReadLine(const Command& command, const Options& options,
                                    std::vector<std::string> words);
} // namespace rfm_tool
