#pragma once

#include "Descriptor.h"
#include "Options.h"

namespace qlnsrvd
{
/// A socket that listens as the options say.
struct Listener
{
    /// Throws: farend::Failure.
    explicit Listener(const Options& options);
    farend::Descriptor socket;
    int port = 0; // the one that it got
};
} // namespace qlnsrvd
