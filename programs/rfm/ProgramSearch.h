#pragma once

#include <optional>
#include <string>

namespace rfm_tool
{
/// The first program of that name below the folders of a variable.
std::optional<std::string> FindBelow(const char* variable, const std::string& name);
/// The relay of this host, which every connection to another one takes, where the library looks for it.
std::optional<std::string> FindRelay();
} // namespace rfm_tool
