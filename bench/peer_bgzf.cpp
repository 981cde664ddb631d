// BGZF through htslib: blocks of 64 KiB deflated at level 6 on one thread, an index of the blocks for random reads, and
// as much cache for inflated blocks as a compressed file of ours has.

#include "contenders.h"
#include "peers.h"

#include <htslib/bgzf.h>
#include <htslib/hts.h>
#include <stdexcept>

namespace bench
{

namespace
{

constexpr int kCacheBytes = 1 << 20;
constexpr const char* kIndexSuffix = ".gzi";

class File
{
public:
    File(const std::string& file, const char* mode) : m_File(bgzf_open(file.c_str(), mode))
    {
        if (m_File == nullptr) throw std::runtime_error("BGZF: open " + file);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File()
    {
        if (m_File != nullptr) bgzf_close(m_File);
    }
    static void Check(bool done, const char* what)
    {
        if (!done) throw std::runtime_error(std::string("BGZF: ") + what);
    }
    void Write(const void* bytes, std::size_t count)
    {
        Check(bgzf_write(m_File, bytes, count) == static_cast<ssize_t>(count), "write");
    }
    void Read(void* bytes, std::size_t count)
    {
        Check(bgzf_read(m_File, bytes, count) == static_cast<ssize_t>(count), "read");
    }
    void Seek(off_t offset) { Check(bgzf_useek(m_File, offset, SEEK_SET) == 0, "seek"); }
    void StartIndex() { Check(bgzf_index_build_init(m_File) == 0, "start of index"); }
    void WriteIndex(const std::string& file)
    {
        Check(bgzf_index_dump(m_File, file.c_str(), kIndexSuffix) == 0, "write index");
    }
    void ReadIndex(const std::string& file)
    {
        Check(bgzf_index_load(m_File, file.c_str(), kIndexSuffix) == 0, "read index");
    }
    void SetCache(int bytes) { bgzf_set_cache_size(m_File, bytes); }
    void Close()
    {
        BGZF* file = std::exchange(m_File, nullptr);
        Check(bgzf_close(file) == 0, "close");
    }

private:
    BGZF* m_File;
};

void RemoveField(const std::string& file)
{
    std::filesystem::remove(file);
    std::filesystem::remove(file + kIndexSuffix);
}

void WriteField(const std::string& name, int count)
{
    File file(name, "w6");
    file.StartIndex();
    for (int i = 0; i < count; ++i) file.Write(FieldBlock(i, count), kBlockBytes);
    file.WriteIndex(name);
    file.Close();
}

std::uint64_t ReadField(const std::string& name, int count)
{
    File file(name, "r");
    return SumField(count, [&](int /*index*/, char* block) { file.Read(block, kBlockBytes); });
}

class HeldField
{
public:
    HeldField(const std::string& file, int /*count*/) : m_File(file, "r")
    {
        m_File.ReadIndex(file);
        m_File.SetCache(kCacheBytes);
    }
    void ReadRow(int row, double* target)
    {
        m_File.Seek(static_cast<off_t>(row) * kFieldRowBytes);
        m_File.Read(target, kFieldRowBytes);
    }

private:
    File m_File;
};

constexpr FileSteps kSteps{"bench.bgzf", RemoveField};

std::unique_ptr<Contender> Make(Kind kind, const Setting& setting)
{
    return MakeCompressed<HeldField>(kind, setting,
                                     {kSteps, WriteField, ReadField, setting.sizes.fieldBlockCount});
}

} // namespace

Peer BgzfPeer()
{
    return {.name = "BGZF",
            .note =
                std::string("htslib ") + hts_version() +
                ": level 6, one thread, an index written beside the file, 1 MiB of cache for random reads",
            .make = Make};
}

} // namespace bench
