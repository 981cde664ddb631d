#pragma once

#include <string_view>

namespace rfm_tool
{
/// Whether a word has a character by which it stands for more than one name: `*`, `?` or `[`.
bool IsGlob(std::string_view word);
/// Whether the whole text fits: `*` is any characters, `?` one, `[a-c]` one of these, `[!a-c]` one that is none of these.
/// A `[` that is never closed is itself. Letters differ by case. The time is bounded by the product of the lengths.
bool MatchesGlob(std::string_view pattern, std::string_view text);
} // namespace rfm_tool
