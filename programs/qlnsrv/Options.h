#pragma once

#include "RelayFormat.h"
#include "Words.h"

#include <string>

namespace qlnsrv
{
/// What the command line asks for.
struct Options
{
    std::string host;
    std::string port;
    farend::Request request;
};

/// -cpu HOST [-private] -port PORT SERVICE [ARGUMENTS], or -kill or -ping in place of the service. What stands behind
/// the service is the service's.
/// Throws: farend::Failure.
Options ParseOptions(farend::Words words);
} // namespace qlnsrv
