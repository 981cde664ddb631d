#pragma once

#include "Channel.h"
#include "Failure.h"
#include "Key.h"
#include "Options.h"

namespace qlnsrv
{
/// What the daemon has to say to the user; its line begins with the daemon's name.
class DaemonFailure : public farend::Failure
{
public:
    using Failure::Failure;
};

/// Connects to the daemon and has both ends prove the key.
/// Throws: farend::Failure; DaemonFailure where the daemon does not want us now.
farend::Channel ConnectToDaemon(const Options& options, const farend::Key& key);

/// Sends the request and waits for its answer.
/// Throws: farend::Failure; DaemonFailure for a refusal.
farend::AnswerStatus Ask(farend::Channel& channel, const farend::Request& request);
} // namespace qlnsrv
