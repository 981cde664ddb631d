#pragma once

#include <string_view>

namespace qlnsrvd
{
/// A program that a proved relay may start: it lies beside this one and bears the name of the service.
struct Service
{
    std::string_view name;
    /// Its first words on its output tell that it runs, and it takes the key in front of its input as the daemon's
    /// relay does. For all others the relay tells so with one byte, and they never see the key.
    bool tellsItself;
};

// All there is: nothing that comes over the network becomes a path.
inline constexpr Service kServices[] = {
    {"rfmT_FileAssistant", true},
    {"rdsT_FileBrowsing", false},
};
} // namespace qlnsrvd
