#include "FileKind.h"

#include "Options.h"
#include "RemoteDoor.h"
#include "rfm_FileRepr.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

namespace rfm_tool
{
namespace
{
constexpr std::array kKinds{FileKind::Plain, FileKind::Compressed, FileKind::Hdf5};

/// The library makes a new file an HDF5 file when this variable is there, so it is there for that one call, and what
/// the user has set doesn't turn a plain file into another kind.
class Hdf5Setting
{
public:
    explicit Hdf5Setting(bool isWanted)
    {
        if (const char* value = std::getenv(kName)) m_Before = value;
        if (isWanted)
            ::setenv(kName, "1", 1);
        else
            ::unsetenv(kName);
    }
    Hdf5Setting(const Hdf5Setting&) = delete;
    Hdf5Setting& operator=(const Hdf5Setting&) = delete;
    ~Hdf5Setting()
    {
        if (m_Before)
            ::setenv(kName, m_Before->c_str(), 1);
        else
            ::unsetenv(kName);
    }

private:
    static constexpr const char* kName = "MRK_HDF_RDX";
    std::optional<std::string> m_Before;
};
} // namespace

std::string_view KindWord(FileKind kind)
{
    switch (kind)
    {
    case FileKind::Plain: return "plain";
    case FileKind::Compressed: return "compressed";
    case FileKind::Hdf5: break;
    }
    return "hdf5";
}

FileKind KindOfFile(const std::string& path)
{
    if (IsRemotePath(path)) return FileKind::Plain; // whatever it lies in: it is served as that
    char bytes[8] = {};
    std::ifstream file(path, std::ios::binary);
    file.read(bytes, sizeof bytes);
    const std::string_view start(bytes, static_cast<std::size_t>(file.gcount()));
    if (start.starts_with("MRKTSA")) return FileKind::Compressed;
    return start == "\x89HDF\r\n\x1a\n" ? FileKind::Hdf5 : FileKind::Plain;
}

std::int64_t BytesOnDisk(const std::string& path)
{
    if (IsRemotePath(path)) return OpenRemoteFile(path).Repr().MediumSize().Value();
    std::error_code unknown;
    return static_cast<std::int64_t>(std::filesystem::file_size(path, unknown));
}

FileKind KindOfWord(std::string_view word)
{
    for (const FileKind kind : kKinds)
        if (word == KindWord(kind)) return kind;
    return FileKind::Plain;
}

Option& DeclareKind(Options& options, std::string& word, const std::string& help)
{
    std::vector<std::string> words;
    words.reserve(kKinds.size());
    for (const FileKind kind : kKinds) words.emplace_back(KindWord(kind));
    return options.Add("--to", word, help).ValueName("KIND").OneOf(std::move(words));
}

rfm_File CreateFileOfKind(FileKind kind, const std::string& path)
{
    if (kind == FileKind::Compressed) return rfm_File::CreateCompressed(path.c_str());
    const Hdf5Setting setting(kind == FileKind::Hdf5);
    return rfm_File::Open(path.c_str(), utl_FileAccessCreate);
}
} // namespace rfm_tool
