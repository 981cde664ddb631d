// Writes the displacements of three nodes for two increments into one array, a row of 2 numbers for each
// node, and reads the second increment alone.
#include "rfm.h"

#include <array>
#include <cstdio>

static rfm_Handle Write(const char* fileName)
{
    rfm_Database database =
        rfm_Database::Create(rfm_File::Open(fileName, utl_FileAccessCreate), "EXMP", "", 0);
    rfm_Array<double, rfm_TypeDouble> displacements = database.ArrayDouble(2, -1, 0);
    for (const double load : {1.0, 2.5})
    {
        const std::array values{0.0, 0.0, load, -load, 2 * load, -3 * load};
        displacements.Write(values.data(), 3); // rows, not numbers
        displacements.Flush();                 // first the object, then the database: now readers see it
        database.Flush();
    }
    return displacements.Handle();
}

int main(int argc, char** argv)
{
    int count = 0;
    rfm_initialize(count);
    const char* fileName = argc > 1 ? argv[1] : "displacements.rdx";
    const rfm_Handle handle = Write(fileName);
    {
        rfm_Database database = rfm_Database::Open(rfm_File::Open(fileName, utl_FileAccessRead), "EXMP");
        rfm_Array<double, rfm_TypeDouble> displacements = database.ArrayDouble(handle, -1, 0);
        displacements.Seek(3);
        for (std::array<double, 2> node{}; displacements.Read(node.data(), 1) == 2;)
            std::printf("%.1f %.1f\n", node[0], node[1]);
    }
    rfm_finalize(count);
}
