// rfmT_FileAssistant PATH [-scratch]: serves one database file to one reader over standard input and output.

#include "Assistant.h"
#include "Descriptor.h"
#include "Options.h"
#include "rfm_Library.h"
#include "utl_BinStreamException.h"

#include <unistd.h>

#include <csignal>
#include <exception>
#include <string>

namespace assistant
{
namespace
{
// Readers take what follows this prefix for the reason, line by line and 511 bytes of each.
constexpr std::string_view kPrefix = "assistant, ";
constexpr std::size_t kMostLineBytes = 500;

// One line, whatever is in the text: a name with a line end must not begin one of its own.
void Complain(std::string_view reason)
{
    std::string line = std::string(kPrefix).append(reason);
    if (line.size() > kMostLineBytes) line = line.substr(0, kMostLineBytes - 3) + "...";
    for (char& each : line)
        if (static_cast<unsigned char>(each) < ' ' || each == 0x7f) each = ' ';
    line += '\n';
    static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size())); // nobody else could be told
}

void SetUp()
{
    std::signal(SIGPIPE, SIG_IGN); // a reader that leaves shows in write()
    farend::CloseStrayDescriptors();
    farend::FillStandardDescriptors(); // the file must not get the number of a pipe
}

int ServeGuarded(int argc, char** argv)
{
    try
    {
        SetUp();
        const std::string path = FileToServe({argv + 1, argv + argc});
        Assistant(STDIN_FILENO, STDOUT_FILENO).Serve(cow_String(path));
        return 0;
    }
    catch (const ReaderHasGone&)
    {
        return 0;
    }
    catch (const utl_BinStreamEOF&)
    {
        Complain("the input ended within a message");
    }
    catch (const std::bad_alloc&)
    {
        Complain("there is not enough memory");
    }
    catch (const std::exception& failure)
    {
        Complain(failure.what());
    }
    return 1;
}

int Main(int argc, char** argv)
{
    int initializations = 0;
    rfm_initialize(initializations);
    const int code = ServeGuarded(argc, argv);
    rfm_finalize(initializations);
    return code;
}
} // namespace
} // namespace assistant

int main(int argc, char** argv) { return assistant::Main(argc, argv); }
