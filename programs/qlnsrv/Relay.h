#pragma once

#include "Channel.h"
#include "PipeWriter.h"

#include <string>

namespace qlnsrv
{
/// The pipe: standard input to the service, the service's output and error to ours. One piece of some frames at most waits
/// in each direction; where it can't go on, nothing is read from the other side.
///
///                  end of input                          the service has ended
///   [ both ways ] -------------> [ only from the service ] ------------------> [ writing the rest ] -> done
///        |                                |                                            |
///        +--------------------------------+-- connection lost, nobody reads: Failure --+
class Relay
{
public:
    explicit Relay(farend::Channel& channel);

    /// Writes the byte by which whoever started us knows that the service runs.
    void TellStart();
    /// Runs until the service has ended and its output is out; answers our exit code.
    /// Throws: farend::Failure; DaemonFailure where the service failed without a word.
    int Run(const std::string& service);

private:
    bool TakeFrames();
    bool TakeFrame();
    void WriteError(std::string bytes);
    void Wait(bool isBusy);
    void ReadInput();
    int ExitCode(const std::string& service) const;

    farend::Channel& m_Channel;
    farend::NonBlocking m_InputMode;
    farend::NonBlocking m_OutputMode;
    farend::PipeWriter m_Output;
    std::string m_Gathered; // of the service's output; its room is used again
    bool m_InputHasEnded = false;
    bool m_HasClosed = false;
    bool m_SaidError = false;
    std::size_t m_ErrorRoom;
    farend::Closed m_Closed;
};
} // namespace qlnsrv
