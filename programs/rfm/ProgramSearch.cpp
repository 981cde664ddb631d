#include "ProgramSearch.h"

#include "Text.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace rfm_tool
{
namespace
{
bool IsProgram(const std::string& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}
} // namespace

std::optional<std::string> FindBelow(const char* variable, const std::string& name)
{
    const char* value = std::getenv(variable);
    if (value == nullptr) return {};
    for (const std::string& folder : Split(value, ':'))
        if (const std::string path = fmt::format("{}/{}", folder, name); !folder.empty() && IsProgram(path))
            return path;
    return {};
}

std::optional<std::string> FindRelay() { return FindBelow("MRL_PATH", "External/qlnsrv/qlnsrv"); }
} // namespace rfm_tool
