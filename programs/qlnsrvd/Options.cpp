#include "Options.h"

#include "Failure.h"
#include "Socket.h"

#include <cstdlib>
#include <limits>

namespace qlnsrvd
{
using farend::ParseNumber;

namespace
{
// "CLIENT PORT SERVER PORT", by which sshd tells where a login came from and where it came in.
std::string AddressOfLogin()
{
    const char* connection = std::getenv("SSH_CONNECTION");
    if (connection == nullptr) return "127.0.0.1";
    const std::string text = connection;
    const std::size_t second = text.find(' ', text.find(' ') + 1);
    const std::size_t third = text.find(' ', second + 1);
    if (second == std::string::npos || third == std::string::npos)
        throw farend::Failure("cannot tell from SSH_CONNECTION where to listen; use -listen ADDRESS");
    return text.substr(second + 1, third - second - 1);
}
} // namespace

Options ParseOptions(farend::Words words)
{
    constexpr int any = std::numeric_limits<int>::max();
    Options options;
    while (words.HasMore())
    {
        const std::string word = words.Take();
        if (word == "-port")
        {
            const std::string port = words.TakeValue(word);
            options.port = port == "auto_assigned" ? 0 : ParseNumber(word, port, 1, 65535);
        }
        else if (word == "-timeout")
            options.timeout = std::chrono::seconds(ParseNumber(word, words.TakeValue(word), 1, any));
        else if (word == "-listen")
            options.address = words.TakeValue(word);
        else if (word == "-error")
            options.logFile = words.TakeValue(word);
        else if (word == "-connections")
            options.mostConnections =
                static_cast<std::size_t>(ParseNumber(word, words.TakeValue(word), 1, 1000));
        else if (word == "-prove")
            options.timeToProve = std::chrono::milliseconds(ParseNumber(word, words.TakeValue(word), 1, any));
        else
            throw farend::Failure("there is no option " + word);
    }
    if (options.address.empty()) options.address = AddressOfLogin();
    return options;
}
} // namespace qlnsrvd
