// The driver on a file's host; its one word so far starts the daemon. See docs/remote.md.

#include "Failure.h"
#include "networkDBConnector.h"

#include "Process.h"

#include <cstdio>
#include <exception>

namespace marlek
{
namespace
{
void Run(int argc, char** argv)
{
    farend::Words words(argc - 1, argv + 1);
    if (!words.HasMore()) throw farend::Failure("there is nothing to do: use marlek networkDBConnector");
    const std::string word = words.Take();
    if (word != "networkDBConnector") throw farend::Failure("there is no word " + word);
    RunNetworkDBConnector(std::move(words));
}
} // namespace
} // namespace marlek

int main(int argc, char** argv)
{
    int code = 1;
    try
    {
        farend::SetUpProcess();
        marlek::Run(argc, argv);
        code = 0;
    }
    catch (const std::exception& failure)
    {
        // To standard output: whoever reads the report there knows a failure by these words.
        std::printf("*** Error: %s\n", failure.what());
    }
    farend::Leave(code);
}
