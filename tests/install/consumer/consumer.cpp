#include <rfm.h>

#include <cstdio>
#include <string>

// One include is enough to catch what the operating system refuses.
static bool IsRefusedByTheSystem(const std::string& name)
{
    try
    {
        rfm_File::Open(name.c_str(), utl_FileAccessCreate);
        return false;
    }
    catch (const utl_FileException&)
    {
        return true;
    }
}

// Writes one number into a new database and reads it back from the file.
int main(int, char** arguments)
{
    int count = 0;
    rfm_initialize(count);
    rfm_Handle handle;
    {
        rfm_Database database =
            rfm_Database::Create(rfm_File::Open(arguments[1], utl_FileAccessCreate), "TEN", "ten lines", 0);
        auto numbers = database.ArrayDouble(1, -1, 0);
        const double written = 2.5;
        numbers.Write(&written, 1);
        handle = numbers.Handle();
    }
    {
        rfm_Database database = rfm_Database::Open(rfm_File::Open(arguments[1], utl_FileAccessRead), "TEN");
        auto numbers = database.ArrayDouble(handle, -1, 0);
        double read = 0;
        numbers.Read(&read, 1);
        std::printf("read %g from %d row\n", read, numbers.Length());
    }
    // A plain file is no directory.
    const bool isRefused = IsRefusedByTheSystem(std::string(arguments[1]) + "/inside");
    rfm_finalize(count);
    return isRefused ? 0 : 1;
}
