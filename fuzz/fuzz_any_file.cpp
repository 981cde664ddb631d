// The input is the file, whole. Finds what a file can do that never was a database; seeds: tests/data.
#include "walk_database.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    fuzz_WalkDatabase(bytes, size);
    fuzz_AppendToDatabase(bytes, size);
    return 0;
}
