// Writes the golden files into the folder that is its one argument. Made for the day when a file is added: the files that
// are there must never be written anew, since they stand for what lies on people's discs.
#include "rfm_GoldenFiles.h"

#include "nex_Exception.h"

#include <cstdio>

int main(int count, char** words)
{
    if (count != 2)
    {
        std::fprintf(stderr, "usage: make_golden_files FOLDER\n");
        return 2;
    }
    try
    {
        for (const GoldenFile& file : kGoldenFiles) file.write(cow_String(words[1]) + "/" + file.name);
        WriteHdf5Golden(cow_String(words[1]) + "/" + kHdf5GoldenName);
        WriteCompressedGolden(cow_String(words[1]) + "/" + kCompressedGoldenName);
    }
    catch (const nex_Exception& failure)
    {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}
