#include "rds_InterpretStdErr.h"

#include "rds_ErrorLine.h"
#include "utl_TempFile.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

// A line is read in pieces of at most 510 bytes.
static constexpr int kLineBytes = 511;
// The longest text anywhere in the library. A remote host that never stops talking must not fill the memory.
static constexpr std::size_t kMostReasonBytes = std::size_t{16} * 1024 * 1024;

struct CloseStream
{
    void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

// Null when there is no file.
static Stream OpenStream(utl_TempFile& file)
{
    if (!file.OpenIfPresent()) return nullptr;
    utl_Descriptor descriptor(file.TakeDescriptor());
    Stream stream(::fdopen(descriptor.Get(), "r"));
    if (stream != nullptr) descriptor.Release(); // the stream closes it
    return stream;
}

cow_String rds_InterpretStdErr(utl_TempFile& file)
{
    std::string text;
    const Stream stream = OpenStream(file);
    char line[kLineBytes];
    while (stream != nullptr && text.size() < kMostReasonBytes &&
           std::fgets(line, sizeof line, stream.get()) != nullptr)
        text += line;
    return text.empty() ? cow_String("Can't be determined") : cow_String(text);
}

cow_String rds_InterpretMarlekErr(utl_TempFile& file)
{
    cow_String last;
    const Stream stream = OpenStream(file);
    if (stream == nullptr) return last;
    // A child that still talks, faster than it is read, must not keep its reader: what is there now counts.
    std::fseek(stream.get(), 0, SEEK_END);
    const long end = std::ftell(stream.get());
    std::fseek(stream.get(), std::max(end - static_cast<long>(kMostReasonBytes), 0L), SEEK_SET);
    char line[kLineBytes];
    while (std::ftell(stream.get()) < end && std::fgets(line, sizeof line, stream.get()) != nullptr)
        if (rds_IsErrorLine(line)) last = line;
    return last;
}
