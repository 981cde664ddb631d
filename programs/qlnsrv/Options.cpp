#include "Options.h"

#include "Failure.h"
#include "Socket.h"

namespace qlnsrv
{
using farend::Action;
using farend::Failure;

namespace
{
// A name that begins with a dash is no host; it would be an option to whatever program it is handed to next.
void CheckHost(const std::string& host)
{
    if (host.empty()) throw Failure("there is no host: use -cpu HOST");
    if (host.front() == '-') throw Failure("a host cannot begin with a dash: " + host);
}

void TakeAction(Options& options, bool& hasAction, Action action)
{
    if (hasAction) throw Failure("use one of SERVICE, -kill and -ping");
    hasAction = true;
    options.request.action = action;
}
} // namespace

Options ParseOptions(farend::Words words)
{
    Options options;
    bool hasAction = false;
    while (words.HasMore())
    {
        const std::string word = words.Next();
        if (word.empty() || word.front() != '-')
        {
            TakeAction(options, hasAction, Action::Run);
            options.request.words = words.TakeRest();
            break;
        }
        words.Take();
        if (word == "-cpu")
            options.host = words.TakeValue(word);
        else if (word == "-port")
            options.port = words.TakeValue(word);
        else if (word == "-kill")
            TakeAction(options, hasAction, Action::Kill);
        else if (word == "-ping")
            TakeAction(options, hasAction, Action::Ping);
        else if (word != "-private") // every connection is private
            throw Failure("there is no option " + word);
    }
    CheckHost(options.host);
    if (options.port.empty()) throw Failure("there is no port: use -port PORT");
    options.port = std::to_string(farend::ParseNumber("-port", options.port, 1, 65535));
    if (!hasAction) throw Failure("there is nothing to do: use SERVICE, -kill or -ping");
    return options;
}
} // namespace qlnsrv
