// Writes a table of bolts to a database, reads it back, and asks a field without data first.
#include "rfm.h"

#include <cstdio>
#include <ctime>

static void Write(const char* fileName)
{
    rfm_Database database = rfm_Database::Create(rfm_File::Open(fileName, utl_FileAccessCreate), "EXMP",
                                                 "Bolts of a flange", std::time(nullptr));
    rfm_TableMetadata layout("BOLTS", 1);
    const int name = layout.DefineStringField("name");
    const int force = layout.DefineDoubleField("force");
    rfm_Table bolts = database.Table(database.Bind(layout), -1, -1); // the first object: the root table
    rfm_Row upper = bolts.NewRow();
    upper.WriteFieldString(name, "upper");
    upper.WriteFieldDouble(force, 1250.5);
    bolts.NewRow().WriteFieldString(name, "lower"); // its force is not known yet
}

int main(int argc, char** argv)
{
    int count = 0;
    rfm_initialize(count);
    const char* fileName = argc > 1 ? argv[1] : "bolts.rdx";
    Write(fileName);
    {
        rfm_Database database = rfm_Database::Open(rfm_File::Open(fileName, utl_FileAccessRead), "EXMP");
        database.Bind(); // all layouts as the file has them
        rfm_Table bolts = database.Table(database.RootTableHandle(), -1, -1);
        for (int i = 0; i < bolts.Length(); ++i)
        {
            const rfm_Row row = bolts.ReadRow(i);
            const double force = row.DataIsPresent("force") ? row.ReadFieldDouble("force") : 0;
            std::printf("%d %s %.1f\n", i, row.ReadFieldString("name").CString(), force);
        }
    }
    rfm_finalize(count);
}
