#include "Options.h"

#include "Failure.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace assistant
{
using farend::Failure;

namespace
{
constexpr std::string_view kScratchWord = "SCRATCHDIR_RHOST";
constexpr std::string_view kScratchOption = "-scratch";
constexpr std::string_view kUrlStart = "mrkrdb:";

std::string ScratchDirectory()
{
    for (const char* name : {"SCRATCHDIR_RHOST", "TMPDIR"})
        if (const char* value = std::getenv(name); value != nullptr && *value != '\0') return value;
    return "/tmp";
}

bool LeadsUp(std::string_view path)
{
    const std::filesystem::path parts(path);
    return std::any_of(parts.begin(), parts.end(), [](const auto& part) { return part == ".."; });
}

// What comes from the path of a URL has a "/" in front, and what was written as a variable a "$".
std::string InScratchDirectory(const std::string& path)
{
    const std::size_t place = path.find(kScratchWord);
    if (place == std::string::npos)
        throw Failure("-scratch was given and SCRATCHDIR_RHOST is not in the name: " + path);
    const std::string_view before = std::string_view(path).substr(0, place);
    const std::string_view rest = std::string_view(path).substr(place + kScratchWord.size());
    const bool isFirst = before.empty() || before == "/" || before == "$" || before == "/$";
    if (!isFirst || !rest.starts_with('/'))
        throw Failure("SCRATCHDIR_RHOST is not the first directory of the name: " + path);
    if (LeadsUp(rest)) throw Failure("a name in the scratch directory must not lead out of it: " + path);
    return ScratchDirectory().append(rest);
}
} // namespace

std::string FileToServe(const std::vector<std::string>& words)
{
    const bool isScratch = words.size() == 2 && words[1] == kScratchOption;
    if (words.empty() || (words.size() > 1 && !isScratch))
        throw Failure("usage: rfmT_FileAssistant PATH [-scratch]");
    const std::string& path = words.front();
    // It would be looked for on yet another host.
    if (std::string_view(path).starts_with(kUrlStart)) throw Failure("not a file of this host: " + path);
    return isScratch ? InScratchDirectory(path) : path;
}
} // namespace assistant
