#pragma once

#include "Command.h"

#include <memory>
#include <string>
#include <vector>

namespace rfm_tool
{
/// What `rfm __complete WORDS` prints for the scripts of the shells: on each line one text that the last of `words`, which
/// may be empty, can be completed to. They are commands, options, an option's choices, and objects and fields out of the
/// file that the words name. Nothing where only a file fits: those the shell knows best.
///
/// An option or argument that is called
/// OBJECT takes objects, --fields and what is called FIELD take fields of that object.
/// Throws: Failure, for a file that can't be read.
int PrintCandidates(const std::vector<std::unique_ptr<Command>>& commands,
                    const std::vector<std::string>& words, Output& output);
} // namespace rfm_tool
