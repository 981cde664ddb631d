#include "utl_PathFinder.h"

#include "utl_FilePath.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

cow_String utl_PathFinder::getSubDirPath(const cow_String& variable, const cow_String& subDirectory,
                                         const cow_String& file, bool executable, bool, bool)
{
    const char* value = std::getenv(variable.CString());
    if (value == nullptr || file.IsEmpty()) return {};
    const cow_String below = subDirectory.IsEmpty() ? "/" + file : "/" + subDirectory + "/" + file;
    for (std::string_view rest(value); !rest.empty();)
    {
        const std::string_view directory = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(rest.size(), directory.size() + 1));
        if (directory.empty()) continue;
        const cow_String candidate = cow_String(directory) + below;
        const bool counts =
            executable ? utl_FilePath(candidate, "").IsExecutable() : utl_Stat(candidate).IsRegularFile();
        if (counts) return candidate;
    }
    return {};
}
