#pragma once

#include <string>
#include <string_view>

/// The bytes that `digits` writes down, two digits each; blanks between them don't count.
inline std::string FromHex(std::string_view digits)
{
    std::string bytes;
    std::string pair;
    for (const char digit : digits)
    {
        if (digit == ' ') continue;
        pair += digit;
        if (pair.size() < 2) continue;
        bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
        pair.clear();
    }
    return bytes;
}
