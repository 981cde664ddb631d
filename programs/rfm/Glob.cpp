#include "Glob.h"

#include <cstddef>

namespace rfm_tool
{
namespace
{
// Bytes of the character at the start of a text, which isn't empty: UTF-8 sequences count as one.
std::size_t CharacterBytes(std::string_view text)
{
    std::size_t bytes = 1;
    while (bytes < text.size() && (static_cast<unsigned char>(text[bytes]) & 0xC0U) == 0x80U) ++bytes;
    return bytes;
}

std::string_view TakeCharacter(std::string_view& text)
{
    const std::string_view character = text.substr(0, CharacterBytes(text));
    text.remove_prefix(character.size());
    return character;
}

// Bytes of the set at the start of a pattern, its brackets included; 0 when it isn't closed. A `]` right behind the start
// belongs to the set.
std::size_t SetBytes(std::string_view pattern)
{
    const std::size_t first = pattern.size() > 1 && pattern[1] == '!' ? 2 : 1;
    const std::size_t end = pattern.find(']', first + 1);
    return end == std::string_view::npos ? 0 : end + 1;
}

// UTF-8 keeps the order of the characters, so that bytes can be compared.
bool IsInSet(std::string_view members, std::string_view character)
{
    const bool isNegated = members.front() == '!';
    if (isNegated) members.remove_prefix(1);
    bool isMember = false;
    while (!members.empty())
    {
        const std::string_view low = TakeCharacter(members);
        std::string_view high = low;
        if (members.size() > 1 && members.front() == '-')
        {
            members.remove_prefix(1);
            high = TakeCharacter(members);
        }
        isMember = isMember || (low <= character && character <= high);
    }
    return isMember != isNegated;
}

// One step of a pattern that doesn't begin with `*`, against one character; both are taken when they fit.
bool TakeFitting(std::string_view& pattern, std::string_view& text)
{
    if (pattern.empty() || text.empty()) return false;
    std::string_view rest = text;
    const std::string_view character = TakeCharacter(rest);
    std::size_t taken = CharacterBytes(pattern);
    if (pattern.front() == '[' && SetBytes(pattern) > 0)
    {
        taken = SetBytes(pattern);
        if (!IsInSet(pattern.substr(1, taken - 2), character)) return false;
    }
    else if (pattern.front() != '?' && pattern.substr(0, taken) != character)
        return false;
    pattern.remove_prefix(taken);
    text = rest;
    return true;
}
} // namespace

bool IsGlob(std::string_view word) { return word.find_first_of("*?[") != std::string_view::npos; }

// When a step fails, the last `*` takes one character more: the ones before it need never be tried again.
bool MatchesGlob(std::string_view pattern, std::string_view text)
{
    bool hasStar = false;
    std::string_view patternBehindStar;
    std::string_view textBehindStar;
    while (!text.empty() || !pattern.empty())
    {
        if (!pattern.empty() && pattern.front() == '*')
        {
            pattern.remove_prefix(1);
            hasStar = true;
            patternBehindStar = pattern;
            textBehindStar = text;
        }
        else if (!TakeFitting(pattern, text))
        {
            if (!hasStar || textBehindStar.empty()) return false;
            TakeCharacter(textBehindStar);
            pattern = patternBehindStar;
            text = textBehindStar;
        }
    }
    return true;
}
} // namespace rfm_tool
