#pragma once

#include "Channel.h"
#include "Key.h"
#include "Log.h"
#include "Proof.h"

#include <chrono>
#include <string>

namespace qlnsrvd
{
/// What all sessions of a daemon share.
struct SessionSetting
{
    const farend::Hello& hello;
    const farend::ProvingTls& tls;
    const farend::Key& key;
    const Log& log;
    std::chrono::milliseconds timeToProve;
    std::string programFolder;
};

/// What a session's process tells the daemon over their socket pair, and the daemon's answers. One byte each.
enum class Notice : char
{
    Proved = 'P',
    Kill = 'K',
    Run = 'R',
    ListensNoMore = 'L', // the answer to Kill
    MayRun = 'Y',        // the answers to Run
    NoRoom = 'N',
};

/// The exit code of a session's process.
enum class SessionEnd : int
{
    Done = 0,
    Unproved = 1, // left, or was too slow
    WrongKey = 2,
};

/// Serves one relay, in a process of its own, from the hello to its end. Never throws: what goes wrong is logged.
SessionEnd ServeRelay(farend::Descriptor socket, farend::Descriptor daemon, const std::string& peer,
                      const SessionSetting& setting) noexcept;
} // namespace qlnsrvd
