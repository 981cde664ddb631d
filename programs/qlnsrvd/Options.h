#pragma once

#include "Words.h"

#include <chrono>
#include <cstddef>
#include <string>

namespace qlnsrvd
{
/// What the command line asks for.
struct Options
{
    int port = 0;                        // 0: any that is free
    std::string address;                 // where to listen; empty: where the login came in
    std::chrono::seconds timeout{86400}; // without a service, until the end
    std::string logFile;                 // empty: none
    std::size_t mostConnections = 64;    // proved ones
    std::chrono::milliseconds timeToProve{10000};
};

/// [-port N|auto_assigned] [-timeout SECONDS] [-listen ADDRESS] [-error FILE] [-connections N] [-prove MILLISECONDS]
/// Throws: farend::Failure.
Options ParseOptions(farend::Words words);
} // namespace qlnsrvd
