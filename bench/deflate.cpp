#include "deflate.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <zlib.h>

#ifdef RFM_BENCH_LIBDEFLATE
#include <libdeflate.h>
#include <memory>
#endif

namespace bench
{

#ifdef RFM_BENCH_LIBDEFLATE

namespace
{

struct FreeDeflater
{
    void operator()(libdeflate_compressor* object) const { libdeflate_free_compressor(object); }
    void operator()(libdeflate_decompressor* object) const { libdeflate_free_decompressor(object); }
};

libdeflate_compressor* Deflater()
{
    static const std::unique_ptr<libdeflate_compressor, FreeDeflater> deflater(
        libdeflate_alloc_compressor(kDeflateLevel));
    return deflater.get();
}

libdeflate_decompressor* Inflater()
{
    static const std::unique_ptr<libdeflate_decompressor, FreeDeflater> inflater(
        libdeflate_alloc_decompressor());
    return inflater.get();
}

} // namespace

std::string DeflaterName() { return "libdeflate " LIBDEFLATE_VERSION_STRING; }

std::size_t Deflate(const char* source, std::size_t count, char* target)
{
    const std::size_t length = libdeflate_zlib_compress(Deflater(), source, count, target, DeflateRoom());
    if (length == 0) throw std::runtime_error("libdeflate: no room");
    return length;
}

void Inflate(const char* source, std::size_t count, char* target, std::size_t targetCount)
{
    if (libdeflate_zlib_decompress(Inflater(), source, count, target, targetCount, nullptr) !=
        LIBDEFLATE_SUCCESS)
        throw std::runtime_error("libdeflate: a damaged stream");
}

#else

std::string DeflaterName() { return std::string("zlib ") + zlibVersion(); }

std::size_t Deflate(const char* source, std::size_t count, char* target)
{
    return DeflateByZlib(source, count, target);
}

void Inflate(const char* source, std::size_t count, char* target, std::size_t targetCount)
{
    uLongf length = targetCount;
    const int result =
        uncompress(reinterpret_cast<Bytef*>(target), &length, reinterpret_cast<const Bytef*>(source), count);
    if (result != Z_OK || length != targetCount) throw std::runtime_error("zlib: a damaged stream");
}

#endif

std::size_t DeflateRoom() { return compressBound(kDeflatePiece); }

std::size_t DeflateByZlib(const char* source, std::size_t count, char* target)
{
    uLongf length = DeflateRoom();
    const int result = compress2(reinterpret_cast<Bytef*>(target), &length,
                                 reinterpret_cast<const Bytef*>(source), count, kDeflateLevel);
    if (result != Z_OK) throw std::runtime_error("zlib: no room");
    return length;
}

DeflatedPieces::DeflatedPieces(std::size_t byteCount)
    : m_Room((byteCount + kDeflatePiece - 1) / kDeflatePiece * DeflateRoom()),
      m_Lengths(m_Room.size() / DeflateRoom())
{
}

void DeflatedPieces::Deflate(std::size_t piece, const char* bytes, std::size_t count)
{
    for (std::size_t done = 0; done < count; done += kDeflatePiece, ++piece)
    {
        m_Lengths[piece] = bench::Deflate(bytes + done, std::min(kDeflatePiece, count - done),
                                          m_Room.data() + piece * DeflateRoom());
    }
}

void DeflatedPieces::Inflate(std::size_t piece, char* bytes, std::size_t count) const
{
    for (std::size_t done = 0; done < count; done += kDeflatePiece, ++piece)
    {
        bench::Inflate(m_Room.data() + piece * DeflateRoom(), m_Lengths[piece], bytes + done,
                       std::min(kDeflatePiece, count - done));
    }
}

std::size_t DeflatedPieces::StoredBytes() const
{
    return std::accumulate(m_Lengths.begin(), m_Lengths.end(), std::size_t{0});
}

} // namespace bench
