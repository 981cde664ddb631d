// The compressor alone, from memory to memory, on the bytes that a compressed file of ours gets: what part of our time
// is its.

#include "contenders.h"
#include "deflate.h"
#include "peers.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace bench
{

namespace
{

class DeflatedContender : public Contender
{
public:
    void Prepare(int /*round*/) override {}

protected:
    explicit DeflatedContender(const Sizes& sizes) : m_Sizes(sizes) {}
    const Sizes m_Sizes;
};

/// The field, kept as streams.
class Field : public DeflatedContender
{
public:
    Field(const Setting& setting, Kind kind)
        : DeflatedContender(setting.sizes),
          m_Kind(kind),
          m_Pieces(static_cast<std::size_t>(m_Sizes.fieldBlockCount) * kBlockBytes)
    {
    }
    void Build() override { DeflateAll(); }
    double Run() override
    {
        if (m_Kind == Kind::CompressedSize) return static_cast<double>(m_Pieces.StoredBytes());
        return SecondsOf([&] { m_Kind == Kind::CompressedWrite ? DeflateAll() : InflateAll(); });
    }
    std::uint64_t Verify() override
    {
        if (m_Kind != Kind::CompressedRead) InflateAll();
        return m_Sum;
    }

private:
    static constexpr std::size_t kPiecesPerBlock = kBlockBytes / kDeflatePiece;

    void DeflateAll()
    {
        for (int i = 0; i < m_Sizes.fieldBlockCount; ++i)
        {
            m_Pieces.Deflate(static_cast<std::size_t>(i) * kPiecesPerBlock,
                             static_cast<const char*>(FieldBlock(i, m_Sizes.fieldBlockCount)), kBlockBytes);
        }
    }
    void InflateAll()
    {
        m_Sum = SumField(
            m_Sizes.fieldBlockCount, [&](int index, char* block)
            { m_Pieces.Inflate(static_cast<std::size_t>(index) * kPiecesPerBlock, block, kBlockBytes); });
    }
    const Kind m_Kind;
    DeflatedPieces m_Pieces;
    std::uint64_t m_Sum = 0;
};

std::vector<char> BytesOf(const std::string& file)
{
    std::ifstream source(file, std::ios::binary);
    std::vector<char> bytes(std::istreambuf_iterator<char>(source), {});
    if (bytes.empty()) throw std::runtime_error(file + ": nothing to deflate");
    return bytes;
}

/// The bytes of a plain file of ours with the rows.
class Rows : public DeflatedContender
{
public:
    Rows(const Setting& setting, Kind kind)
        : DeflatedContender(setting.sizes),
          m_Kind(kind),
          m_File(setting.File("deflate.rdx"))
    {
    }
    void Build() override
    {
        WriteRfmRows(m_File, m_Sizes.rowCount);
        m_Bytes = BytesOf(m_File);
        m_Back.resize(m_Bytes.size());
        m_Pieces.emplace(m_Bytes.size());
        DeflateAll();
    }
    double Run() override
    {
        return SecondsOf([&] { m_Kind == Kind::CompressedAppend ? DeflateAll() : InflateAll(); });
    }
    std::uint64_t Verify() override
    {
        if (m_Kind == Kind::CompressedAppend) InflateAll();
        return m_Back == m_Bytes ? RowsSum(0, m_Sizes.rowCount) : 0;
    }

private:
    void DeflateAll() { m_Pieces->Deflate(0, m_Bytes.data(), m_Bytes.size()); }
    void InflateAll() { m_Pieces->Inflate(0, m_Back.data(), m_Back.size()); }

    const Kind m_Kind;
    const std::string m_File;
    std::vector<char> m_Bytes;
    std::vector<char> m_Back;
    std::optional<DeflatedPieces> m_Pieces;
};

std::unique_ptr<Contender> Make(Kind kind, const Setting& setting)
{
    switch (kind)
    {
    case Kind::CompressedWrite:
    case Kind::CompressedRead:
    case Kind::CompressedSize: return std::make_unique<Field>(setting, kind);
    case Kind::CompressedAppend:
    case Kind::CompressedScan: return std::make_unique<Rows>(setting, kind);
    default: return nullptr;
    }
}

} // namespace

Peer DeflatePeer()
{
    return {.name = "deflate",
            .note = DeflaterName() +
                    ", level 6, one thread, memory to memory in pieces of 64 KiB, on the bytes that our "
                    "file gets: its ratio is the share of our time that is the compressor's, twice it "
                    "where two threads inflate",
            .make = Make};
}

} // namespace bench
