// A layout gains a field: what the program of before and that of today see in each other's files.
#include "rfm.h"

#include <cstdio>

static rfm_TableMetadata Bolts(int version)
{
    rfm_TableMetadata layout("BOLTS", version);
    layout.DefineDoubleField("force");
    if (version == 2) layout.DefineIntField("grade");
    return layout;
}

static void Write(int version, const char* name)
{
    rfm_Database database = rfm_Database::Create(rfm_File::Open(name, utl_FileAccessCreate), "EXMP", "", 0);
    rfm_Table bolts = database.Table(database.Bind(Bolts(version)), -1, -1);
    for (const double force : {1250.5, 980.0}) bolts.NewRow().WriteFieldDouble("force", force);
    if (version == 2) bolts.UpdateRow(0).WriteFieldInt("grade", 10); // that of row 1 is not known yet
}

static void Read(int version, const char* name)
{
    static const char* const seen[] = {"not in this file", "without data", "has data"};
    rfm_Database database = rfm_Database::Open(rfm_File::Open(name, utl_FileAccessRead), "EXMP");
    const rfm_TableMetadata& layout = database.Bind(Bolts(version)); // its own fields and those of the file
    rfm_Table bolts = database.Table(database.RootTableHandle(), -1, -1);
    for (int i = 0; i < bolts.Length(); ++i)
        for (rfm_Row row = bolts.ReadRow(i); const auto& [field, about] : layout.Fields())
            std::printf("program %d, row %d, field %d: %s %s\n", version, i, about.index, field.CString(),
                        seen[row.FieldIsPresent(field) + row.DataIsPresent(field)]);
}

int main()
{
    int count = 0;
    rfm_initialize(count);
    Write(1, "bolts1.rdx"), Write(2, "bolts2.rdx"), Read(1, "bolts2.rdx"), Read(2, "bolts1.rdx");
    rfm_finalize(count);
}
