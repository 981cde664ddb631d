#include "ByteCopy.h"

#include "Digest.h"
#include "Failure.h"
#include "RemoteDoor.h"
#include "Text.h"
#include "rfm_FileRepr.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace rfm_tool
{
namespace
{
constexpr std::int64_t kBlockBytes = 1048576;

/// The bytes of a file in its way to a copy, which asks for 4096 at a time: taken from the file in large blocks, which
/// the digest and the progress see. It ends at the file's length, where not every kind of file ends by itself.
class WatchedSource : public rfm_FileRepr
{
public:
    WatchedSource(const rfm_File& file, Digest& digest, Progress& progress)
        : rfm_FileRepr(file.FileName()),
          m_File(file),
          m_Digest(digest),
          m_Progress(progress)
    {
        m_LogicalFileSize = m_PhysicalFileSize = file.Repr().Length();
        m_File.Repr().Seek(0);
    }

    bool ReadOnly() const override { return true; }
    int Read(char* buffer, int count) override;
    void Seek(utl_FileOffset) override { Refuse(); }
    void Flush() override { Refuse(); }
    void Extend(utl_FileOffset) override { Refuse(); }
    int Write(const char*, int) override { Refuse(); }
    bool ExtendBy(utl_FileOffset) override { Refuse(); }
    void TrimToLength() override { Refuse(); }

private:
    [[noreturn]] void Refuse() const { throw rfm_FileReadOnlyExc(m_FileName); }
    void LoadBlock();

    rfm_File m_File;
    Digest& m_Digest;
    Progress& m_Progress;
    std::vector<char> m_Block;
    std::size_t m_Taken = 0; // of the block
};

int WatchedSource::Read(char* buffer, int count)
{
    if (m_Taken == m_Block.size()) LoadBlock();
    const std::size_t moved = std::min(static_cast<std::size_t>(count), m_Block.size() - m_Taken);
    std::memcpy(buffer, m_Block.data() + m_Taken, moved);
    m_Taken += moved;
    m_Position += static_cast<std::int64_t>(moved);
    return static_cast<int>(moved);
}

void WatchedSource::LoadBlock()
{
    const std::int64_t wanted = std::min((m_LogicalFileSize - m_Position).Value(), kBlockBytes);
    m_Block.resize(static_cast<std::size_t>(wanted));
    m_Taken = 0;
    if (wanted == 0) return;
    const std::string name = OneLine(m_FileName.View());
    try
    {
        if (m_File.Repr().Read(m_Block.data(), static_cast<int>(wanted)) < wanted)
            throw Failure(ExitUnreadable, name, "the file was cut off while it was read", "try again");
    }
    catch (const nex_Exception& cause)
    {
        ThrowIfRemote(std::string(m_FileName.View()), cause);
        throw Failure(ExitUnreadable, name, PlainMessage(cause.what()), "`rfm check` tells what is damaged");
    }
    m_Digest.Add(m_Block.data(), m_Block.size());
    m_Progress.Advance(wanted);
}
} // namespace

CopiedBytes CopyBytes(const rfm_File& source, rfm_File& target, Progress& progress)
{
    Digest digest;
    const rfm_File watched(new WatchedSource(source, digest, progress));
    target.Copy(watched);
    target.Repr().Flush();
    return {watched.Repr().Location().Value(), digest.Hex()};
}

CopiedBytes ReadBytes(const rfm_File& file, Progress& progress)
{
    Digest digest;
    WatchedSource watched(file, digest, progress);
    std::vector<char> block(static_cast<std::size_t>(kBlockBytes));
    while (watched.Read(block.data(), static_cast<int>(kBlockBytes)) > 0) continue;
    return {watched.Location().Value(), digest.Hex()};
}
} // namespace rfm_tool
