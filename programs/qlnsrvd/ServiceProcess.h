#pragma once

#include "Deadline.h"
#include "Descriptor.h"
#include "Failure.h"
#include "RelayFormat.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace qlnsrvd
{
class Signals;

/// The system can't run a program, or has no pipes for it.
class CannotStart : public farend::Failure
{
public:
    using Failure::Failure;
};

/// A running service in a process group of its own, its three standard descriptors on pipes. Our ends don't block.
/// Destroyed, it has ended, and what it left in its group too.
class ServiceProcess
{
public:
    /// Throws: CannotStart.
    ServiceProcess(const std::string& program, const std::vector<std::string>& words);
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;
    ~ServiceProcess();

    farend::Descriptor input; // to its standard input
    farend::Descriptor output;
    farend::Descriptor errors;

    /// How it ended, if it has. What was left of its group is ended then.
    std::optional<farend::Closed> Ended();
    /// Lets it go politely: its input ends, then, after a while, SIGTERM, then SIGKILL. `signals` wakes the wait when
    /// it has ended; `isUrgent` leaves out the first wait.
    void End(const Signals& signals, bool isUrgent);

private:
    void WaitForEnd(const Signals& signals, std::chrono::milliseconds time);

    pid_t m_Process = -1;
    std::optional<farend::Closed> m_Ended;
};
} // namespace qlnsrvd
