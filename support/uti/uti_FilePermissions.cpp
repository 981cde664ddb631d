#include "uti_FilePermissions.h"

#include "utl_FileException.h"

#include <cerrno>
#include <sys/stat.h>

unsigned long uti_GetFilePermissionsForEveryone(const char* path)
{
    struct stat status
    {
    };
    if (::stat(path, &status) != 0) utl_FileException("look at", path, errno).Throw(__FILE__, __LINE__);
    return status.st_mode & S_IRWXO;
}
