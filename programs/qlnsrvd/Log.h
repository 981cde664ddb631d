#pragma once

#include "Descriptor.h"

#include <string>

namespace qlnsrvd
{
/// One line for each event, in a file that only its owner reads; nothing where nobody asked. A line is
///
///   2026-11-21 19:15:04 UTC qlnsrvd[4711] 192.0.2.7: proved the key
///
/// with the process that wrote it and the peer's address, or "daemon". Keys and contents never get here.
class Log
{
public:
    /// An empty name: no log.
    /// Throws: farend::Failure.
    explicit Log(const std::string& file);

    /// Written at once and whole. A full disk, or a log that has grown past 64 MiB, loses lines and stops nobody.
    void Write(const std::string& who, const std::string& event) const noexcept;

private:
    farend::Descriptor m_File;
};
} // namespace qlnsrvd
