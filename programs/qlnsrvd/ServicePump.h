#pragma once

#include "Channel.h"
#include "PipeWriter.h"
#include "ServiceProcess.h"
#include "Signals.h"

namespace qlnsrvd
{
/// The pipe's far end: frames from the relay to the service's standard input, its output and error to the relay.
///
///                 the service has ended, its output is drained
///   [ carrying ] ---------------------------------------------> [ sending the rest ] --> Served
///        |                                                              |
///        +--- the relay has gone, it breaks the rules, SIGTERM: --------+---> the service is ended, Abandoned
class ServicePump
{
public:
    enum class Outcome
    {
        Served,
        Abandoned,
    };

    ServicePump(farend::Channel& channel, ServiceProcess& service, const Signals& signals);

    /// `first` goes into the service's input before anything that the relay sends.
    Outcome Run(std::string_view first);

private:
    bool Carry();
    bool TakeFrame();
    void CloseInput();
    void SendFrom(farend::Descriptor& source, farend::FrameType type);
    void DrainEndedService();
    void TakeSignals();
    bool Wait(bool isBusy);
    bool WantsFrames() const { return m_Input.IsIdle(); }

    farend::Channel& m_Channel;
    ServiceProcess& m_Service;
    const Signals& m_Signals;
    farend::PipeWriter m_Input;
    bool m_InputEnds = false;
    bool m_SaidClosed = false;
    bool m_MustStop = false;
    bool m_ServiceMoved = false; // until a signal says so, nobody asks the system whether it has ended
};
} // namespace qlnsrvd
