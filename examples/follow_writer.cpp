// One process appends to an array, another follows it: reads, polls the file's status, snaps, reads on.
#include "rfm.h"

#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

static int Follow(const char* fileName, rfm_Handle handle)
{
    rfm_Database database = rfm_Database::Open(rfm_File::Open(fileName, utl_FileAccessRead), "EXMP");
    for (int value = 0; value < 50; database.Snap())
    {
        rfm_Array<int, rfm_TypeInt> values = database.ArrayInt(handle, -1, 0);
        for (values.Seek(value / 10); values.Read(&value, 1) == 1;) std::printf("read %d\n", value);
        while (value < 50 && database.FileStatus() != rfm_FileStatus::RfmFileUpdated) usleep(100);
    }
    return std::fflush(stdout);
}

static int WriteFollowed(const char* fileName)
{
    rfm_Database database =
        rfm_Database::Create(rfm_File::Open(fileName, utl_FileAccessCreate), "EXMP", "", 0);
    rfm_Array<int, rfm_TypeInt> values = database.ArrayInt(1, -1, 0);
    values.Flush(), database.Flush(); // from here on a reader can open it
    const pid_t reader = fork();
    if (reader == 0) _exit(Follow(fileName, values.Handle()));
    for (int i = 10; i <= 50; i += 10) values.Write(&i, 1), values.Flush(), database.Flush();
    int status = 0;
    return waitpid(reader, &status, 0) == reader ? status : 1;
}

int main(int argc, char** argv)
{
    int count = 0;
    rfm_initialize(count);
    const int status = WriteFollowed(argc > 1 ? argv[1] : "followed.rdx");
    rfm_finalize(count);
    return status == 0 ? 0 : 1;
}
