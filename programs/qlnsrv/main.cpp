// The relay: a pipe from here to a service on another host. See docs/remote.md.

#include "Connect.h"
#include "Options.h"
#include "Relay.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <sys/resource.h>

namespace qlnsrv
{
namespace
{
// A dump of our memory would hold keys.
void RefuseDumps()
{
    const rlimit none = {};
    ::setrlimit(RLIMIT_CORE, &none);
}

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
    std::signal(SIGPIPE, SIG_IGN); // a reader that leaves is an answer of write()
    farend::CloseStrayDescriptors();
    qlnsrv::RefuseDumps();
    try
    {
        return qlnsrv::Run(argc, argv);
    }
    catch (const qlnsrv::DaemonFailure& failure)
    {
        qlnsrv::Tell("qlnsrvd", failure);
    }
    catch (const std::exception& failure)
    {
        qlnsrv::Tell("qlnsrv", failure);
    }
    return 1;
}
