// The relay: a pipe from here to a service on another host. See docs/remote.md.

#include "Connect.h"
#include "Options.h"
#include "Process.h"
#include "Relay.h"

#include <cstdio>
#include <exception>

namespace qlnsrv
{
namespace
{
farend::Channel Connect(const Options& options)
{
    farend::Key key;
    key.ReadFrom(STDIN_FILENO);
    return ConnectToDaemon(options, key);
}

int Run(int argc, char** argv)
{
    const Options options = ParseOptions({argc - 1, argv + 1});
    farend::Channel channel = Connect(options);
    const farend::AnswerStatus status = Ask(channel, options.request);
    if (status == farend::AnswerStatus::Done) return 0;
    Relay relay(channel);
    if (status == farend::AnswerStatus::RelayTells) relay.TellStart();
    return relay.Run(options.request.words.front());
}

void Tell(const char* who, const std::exception& failure)
{
    std::fprintf(stderr, "%s, %s\n", who, failure.what());
}
} // namespace
} // namespace qlnsrv

int main(int argc, char** argv)
{
    int code = 1;
    try
    {
        farend::SetUpProcess();
        code = qlnsrv::Run(argc, argv);
    }
    catch (const qlnsrv::DaemonFailure& failure)
    {
        qlnsrv::Tell("qlnsrvd", failure);
    }
    catch (const std::exception& failure)
    {
        qlnsrv::Tell("qlnsrv", failure);
    }
    farend::Leave(code);
}
