// Writes 200 steps of 1000 temperatures each into a compressed file, a row for each step, and reads one step.
#include "rfm.h"

#include <array>
#include <cstdio>

using Step = std::array<double, 1000>;

static rfm_Handle Write(const char* fileName)
{
    rfm_Database database =
        rfm_Database::Create(rfm_File::CreateCompressed(fileName), "EXMP", "Temperatures of a plate", 0);
    rfm_Array<double, rfm_TypeDouble> temperatures = database.ArrayDouble(1000, -1, 0);
    Step step;
    for (int i = 0; i < 200; ++i)
    {
        step.fill(293.15 + i);
        temperatures.Write(step.data(), 1);
    }
    temperatures.Flush();
    return temperatures.Handle();
} // the database closes here

int main(int argc, char** argv)
{
    int count = 0;
    rfm_initialize(count);
    const char* fileName = argc > 1 ? argv[1] : "plate.rdx";
    const rfm_Handle handle = Write(fileName);
    {
        rfm_Database database = rfm_Database::Open(rfm_File::Open(fileName, utl_FileAccessRead), "EXMP");
        rfm_Array<double, rfm_TypeDouble> temperatures = database.ArrayDouble(handle, -1, 0);
        Step step;
        temperatures.Seek(120);
        temperatures.Read(step.data(), 1);
        std::printf("%d steps; %.2f at step 120\n", temperatures.Length(), step[0]);
    }
    rfm_finalize(count);
}
