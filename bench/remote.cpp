#include "remote.h"

#include "FarHost.h"
#include "PipedChild.h"
#include "contenders.h"

#include <fcntl.h>
#include <fstream>
#include <optional>
#include <rfm.h>
#include <stdexcept>
#include <unistd.h>

namespace bench
{

namespace
{

constexpr const char* kMagic = "BNCH";
constexpr int kQuantum = 1 << 20;

// ---- The file ----

void WriteDatabase(const std::string& file, int blockCount)
{
    BlockMaker maker;
    rfm_Database database =
        rfm_Database::Create(rfm_File::Open(file.c_str(), utl_FileAccessCreate), kMagic, "bench", 1);
    {
        auto array = database.ArrayDouble(kFieldRowDoubles, kQuantum, kBlockBytes);
        for (int i = 0; i < blockCount; ++i) array.Write(maker.Block(i), kFieldRowsPerBlock);
        array.Flush();
    }
    database.Close();
}

/// The same blocks without a database around them, for who moves files.
void WriteBytes(const std::string& file, int blockCount)
{
    BlockMaker maker;
    std::ofstream stream(file, std::ios::binary);
    for (int i = 0; i < blockCount; ++i)
        stream.write(reinterpret_cast<const char*>(maker.Block(i)), kBlockBytes);
    if (!stream.flush()) throw std::runtime_error("cannot write " + file);
}

/// The open database and its array.
class OpenBlocks
{
public:
    OpenBlocks(const std::string& name, int bufferBytes)
        : m_Database(rfm_Database::Open(rfm_File::Open(name.c_str(), utl_FileAccessRead), kMagic)),
          m_Array(m_Database.ArrayDouble(m_Database.RootTableHandle(), -1, bufferBytes))
    {
    }
    void ReadBlock(double* values) { Read(values, kFieldRowsPerBlock); }
    void ReadRow(int row, double* values)
    {
        m_Array.Seek(row);
        Read(values, 1);
    }

private:
    void Read(double* values, int rows)
    {
        if (m_Array.Read(values, rows) != rows * kFieldRowDoubles) throw std::runtime_error("a short read");
    }

    rfm_Database m_Database;
    rfm_Array<double, rfm_TypeDouble> m_Array;
};

/// What the random reads see: `readRow(row, values)` has its turn for each.
template <class ReadRow> std::uint64_t SumRandomRows(const Sizes& sizes, ReadRow&& readRow)
{
    std::array<double, kFieldRowDoubles> values{};
    std::uint64_t sum = 0;
    for (int step = 0; step < sizes.remoteRandomCount; ++step)
    {
        readRow(RandomPosition(step, sizes.remoteBlockCount * kFieldRowsPerBlock), values.data());
        sum += FieldRowSum(values.data(), step);
    }
    return sum;
}

template <class ReadBlock> std::uint64_t SumBlocks(const Sizes& sizes, ReadBlock&& readBlock)
{
    std::vector<double> values(kBlockDoubles);
    std::uint64_t sum = 0;
    for (int i = 0; i < sizes.remoteBlockCount; ++i)
    {
        readBlock(values.data());
        sum += BlockSum(values.data(), i);
    }
    return sum;
}

// ---- Ours ----

/// Reads through relay, daemon and assistant. Connecting is not timed, nor is it for ssh.
class RemoteReads : public FileContender
{
public:
    RemoteReads(Kind kind, const Setting& setting)
        : FileContender(setting, "remote.rdx"),
          m_Kind(kind),
          m_HostFolder(setting.File("remote_host"))
    {
    }
    void Build() override
    {
        StartRfm();
        if (!std::filesystem::exists(m_File)) WriteDatabase(m_File, m_Sizes.remoteBlockCount);
        m_Host = std::make_unique<FarHost>(m_HostFolder);
        m_Server.emplace(*m_Host);
    }
    void Prepare(int /*round*/) override
    {
        m_Blocks.emplace(m_Server->Url(m_File), m_Kind == Kind::RemoteRead ? kBlockBytes : kFieldRowBytes);
        if (m_Kind == Kind::RemoteWarm) ReadAll();
    }
    double Run() override
    {
        return SecondsOf([&] { m_Sum = ReadAll(); });
    }
    // The next round's reader holds no page yet.
    std::uint64_t Verify() override
    {
        m_Blocks.reset();
        return m_Sum;
    }

private:
    std::uint64_t ReadAll()
    {
        if (m_Kind == Kind::RemoteRead)
            return SumBlocks(m_Sizes, [&](double* values) { m_Blocks->ReadBlock(values); });
        return SumRandomRows(m_Sizes, [&](int row, double* values) { m_Blocks->ReadRow(row, values); });
    }

    const Kind m_Kind;
    const std::string m_HostFolder;
    std::unique_ptr<FarHost> m_Host;
    std::optional<FileServer> m_Server;
    std::optional<OpenBlocks> m_Blocks;
};

/// Reads the whole file in sequence, whatever the workload: its sum is that of the random reads, which it makes behind
/// the clock.
class WholeFileFirst : public RemoteReads
{
public:
    explicit WholeFileFirst(const Setting& setting) : RemoteReads(Kind::RemoteRead, setting) {}
    std::uint64_t Verify() override
    {
        if (RemoteReads::Verify() != BlocksSum(m_Sizes.remoteBlockCount)) return 0;
        return ExpectedSum(Kind::RemoteCold, m_Sizes, 0);
    }
};

// ---- The system's ----

class LocalBlocks : public FileContender
{
public:
    explicit LocalBlocks(const Setting& setting) : FileContender(setting, "blocks") {}
    ~LocalBlocks() override
    {
        if (m_Descriptor >= 0) ::close(m_Descriptor);
    }
    void Build() override
    {
        WriteBytes(m_File, m_Sizes.remoteBlockCount);
        m_Descriptor = ::open(m_File.c_str(), O_RDONLY | O_CLOEXEC);
    }

protected:
    void ReadAt(std::int64_t place, double* values, std::size_t bytes) const
    {
        if (::pread(m_Descriptor, values, bytes, place) != static_cast<ssize_t>(bytes))
            throw std::runtime_error("a short read");
    }

private:
    int m_Descriptor = -1;
};

class LocalRead : public LocalBlocks
{
public:
    using LocalBlocks::LocalBlocks;
    double Run() override
    {
        std::int64_t place = 0;
        const auto readBlock = [&](double* values)
        {
            ReadAt(place, values, kBlockBytes);
            place += kBlockBytes;
        };
        return SecondsOf([&] { m_Sum = SumBlocks(m_Sizes, readBlock); });
    }
};

class LocalRandom : public LocalBlocks
{
public:
    using LocalBlocks::LocalBlocks;
    double Run() override
    {
        const auto readRow = [&](int row, double* values)
        { ReadAt(std::int64_t{row} * kFieldRowBytes, values, kFieldRowBytes); };
        return SecondsOf([&] { m_Sum = SumRandomRows(m_Sizes, readRow); });
    }
};

// ---- ssh's ----

class OverSsh : public FileContender
{
public:
    explicit OverSsh(const Setting& setting)
        : FileContender(setting, "blocks_there"),
          m_HostFolder(setting.File("ssh_host"))
    {
    }
    void Build() override
    {
        WriteBytes(m_File, m_Sizes.remoteBlockCount);
        m_Host = std::make_unique<FarHost>(m_HostFolder);
    }

protected:
    void LogIn(const std::vector<std::string>& command)
    {
        std::vector<std::string> words = m_Host->Login();
        words.insert(words.end(), command.begin(), command.end());
        m_Child = std::make_unique<PipedChild>(words);
    }
    const PipedChild& Child() const { return *m_Child; }
    void LogOut() { m_Child.reset(); }

private:
    const std::string m_HostFolder;
    std::unique_ptr<FarHost> m_Host;
    std::unique_ptr<PipedChild> m_Child;
};

class SshCat : public OverSsh
{
public:
    using OverSsh::OverSsh;
    void Prepare(int /*round*/) override
    {
        LogIn({"echo; read go; exec cat '" + m_File + "'"});
        Child().Read(1); // it is in
    }
    double Run() override
    {
        return SecondsOf(
            [&]
            {
                Child().Write("\n");
                m_Sum = SumBlocks(m_Sizes, [&](double* values)
                                  { Child().Read(reinterpret_cast<char*>(values), kBlockBytes); });
            });
    }
    std::uint64_t Verify() override
    {
        LogOut();
        return m_Sum;
    }
};

/// Numbers are big-endian; a message begins with the length of what follows, then its type.
std::string SftpNumber(std::uint64_t value, int bytes)
{
    std::string text;
    for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(value >> (8 * i) & 0xFF);
    return text;
}
std::string SftpText(const std::string& text) { return SftpNumber(text.size(), 4) + text; }
std::string SftpMessage(int type, const std::string& fields)
{
    return SftpNumber(fields.size() + 1, 4) + SftpNumber(static_cast<unsigned>(type), 1) + fields;
}

/// Asks for one piece after the other, as a reader without a cache would.
class SftpRandom : public OverSsh
{
public:
    using OverSsh::OverSsh;
    void Prepare(int /*round*/) override
    {
        LogIn({"-s", "sftp"});
        Child().Write(SftpMessage(kInit, SftpNumber(3, 4)));
        Answer(kVersion);
        Child().Write(SftpMessage(kOpen, SftpNumber(0, 4) + SftpText(m_File) + SftpNumber(kForReading, 4) +
                                             SftpNumber(0, 4)));
        m_Handle = Answer(kHandle).substr(4);
    }
    double Run() override
    {
        return SecondsOf(
            [&]
            {
                m_Sum = SumRandomRows(m_Sizes, [&](int row, double* values) { ReadRow(row, values); });
            });
    }
    std::uint64_t Verify() override
    {
        LogOut();
        return m_Sum;
    }

private:
    static constexpr int kInit = 1;
    static constexpr int kVersion = 2;
    static constexpr int kOpen = 3;
    static constexpr int kRead = 5;
    static constexpr int kHandle = 102;
    static constexpr int kData = 103;
    static constexpr unsigned kForReading = 1;

    void ReadRow(int row, double* values) const
    {
        const std::uint64_t place = static_cast<std::uint64_t>(row) * kFieldRowBytes;
        Child().Write(SftpMessage(kRead, SftpNumber(0, 4) + m_Handle + SftpNumber(place, 8) +
                                             SftpNumber(kFieldRowBytes, 4)));
        const std::string answer = Answer(kData);
        if (answer.size() != 4 + 4 + kFieldRowBytes) throw std::runtime_error("sftp: a short read");
        std::memcpy(values, answer.data() + 8, kFieldRowBytes);
    }
    /// What follows the type.
    std::string Answer(int type) const
    {
        std::uint32_t length = 0;
        for (const char byte : Child().Read(4)) length = length << 8 | static_cast<unsigned char>(byte);
        const std::string answer = Child().Read(length);
        if (answer.empty() || static_cast<unsigned char>(answer[0]) != type)
            throw std::runtime_error("sftp: another answer than was expected");
        return answer.substr(1);
    }

    std::string m_Handle;
};

std::unique_ptr<Contender> MakeOverSsh(Kind kind, const Setting& setting)
{
    switch (kind)
    {
    case Kind::RemoteRead: return std::make_unique<SshCat>(setting);
    case Kind::RemoteCold:
    case Kind::RemoteWarm: return std::make_unique<SftpRandom>(setting);
    default: return nullptr;
    }
}

} // namespace

std::unique_ptr<Contender> MakeRemote(Kind kind, const Setting& setting)
{
    return std::make_unique<RemoteReads>(kind, setting);
}

std::unique_ptr<Contender> MakeRemoteBare(Kind kind, const Setting& setting)
{
    switch (kind)
    {
    case Kind::RemoteRead: return std::make_unique<LocalRead>(setting);
    case Kind::RemoteCold: return std::make_unique<WholeFileFirst>(setting);
    default: return std::make_unique<LocalRandom>(setting);
    }
}

Peer SshPeer()
{
    return {.name = "ssh", .note = "cat of the file, or sftp with one read at a time", .make = MakeOverSsh};
}

} // namespace bench
