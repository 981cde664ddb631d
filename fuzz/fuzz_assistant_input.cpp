// The input is what a reader sends to the file assistant: once all of it, and once from behind a good handshake on.
#include "Assistant.h"
#include "Descriptor.h"
#include "Failure.h"
#include "utl_BinStreamException.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace
{
constexpr std::string_view kHandshake("\x00\x00\x01\x00\x00\x04\x00", 7);
// Each request is short, and each may bring a page of the file.
constexpr std::size_t kMostInput = 4096;

farend::Descriptor MakeFile(std::string_view bytes)
{
    farend::Descriptor file(::memfd_create("fuzz", MFD_CLOEXEC));
    if (::write(file.Get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
    ::lseek(file.Get(), 0, SEEK_SET);
    return file;
}

void Serve(std::string_view input)
{
    static const farend::Descriptor s_Served = MakeFile(std::string(2500, 'x'));
    const farend::Descriptor in = MakeFile(input);
    const farend::Descriptor out = MakeFile({});
    const std::string path = "/proc/self/fd/" + std::to_string(s_Served.Get());
    try
    {
        assistant::Assistant(in.Get(), out.Get()).Serve(cow_String(path));
    }
    catch (const farend::Failure& refusal)
    {
        if (std::string(refusal.what()).empty()) std::abort(); // a refusal without a word helps nobody
    }
    catch (const utl_BinStreamEOF&)
    {
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(bytes), std::min(size, kMostInput));
    Serve(input);
    Serve(std::string(kHandshake) + input);
    return 0;
}
