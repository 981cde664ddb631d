#include "FileStamp.h"

#include <sys/stat.h>

namespace rfm_tool
{
FileStamp StampOf(const std::string& path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) return {};
    return {status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}
} // namespace rfm_tool
