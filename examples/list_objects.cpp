// Lists the objects of any database: plain, compressed or HDF5, on this host or, by its URL, on another.
#include "rfm.h"

#include <cstdio>
#include <exception>

static void List(const char* name)
{
    rfm_Database database = rfm_Database::Open(rfm_File::Open(name, utl_FileAccessRead), "");
    database.Bind(); // all layouts, as the file has them
    for (const rfm_Handle& handle : database.Handles())
        if (const rfm_Type type = database.HandleType(handle); type == rfm_TypeTable)
        {
            rfm_Table table = database.Table(handle, -1, -1);
            std::printf("%u: table %s, %d rows\n", handle.Value(), table.TableMetadata().Name().CString(),
                        table.Length());
        }
        else if (type == rfm_TypeDouble)
        {
            rfm_Array<double, rfm_TypeDouble> array = database.ArrayDouble(handle, -1, 0);
            std::printf("%u: %d rows of %d numbers\n", handle.Value(), array.Length(), array.FieldCount());
        }
}

int main(int argc, char** argv)
try
{
    int count = 0;
    rfm_initialize(count);
    List(argc > 1 ? argv[1] : "plate.rdx");
    rfm_finalize(count);
}
catch (const std::exception& failure)
{
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
}
