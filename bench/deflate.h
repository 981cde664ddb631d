// The compressor that a compressed file of ours is bound by, without the file: zlib streams of level 6 of pieces of
// 64 KiB, by libdeflate where it was found, by zlib elsewhere.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench
{

inline constexpr int kDeflateLevel = 6;
inline constexpr std::size_t kDeflatePiece = 65'536;

/// What stands behind the two functions below.
std::string DeflaterName();

/// Deflates at most `kDeflatePiece` bytes into `target`, which has room for `DeflateRoom()`. Result: the bytes it took.
std::size_t Deflate(const char* source, std::size_t count, char* target);
std::size_t DeflateRoom();
/// The same by zlib, whatever was found.
std::size_t DeflateByZlib(const char* source, std::size_t count, char* target);
/// Inflates a stream of exactly `targetCount` bytes.
void Inflate(const char* source, std::size_t count, char* target, std::size_t targetCount);

/// Streams in memory that is touched before the clock starts.
class DeflatedPieces
{
public:
    explicit DeflatedPieces(std::size_t byteCount);
    /// `bytes` are all that lie in the pieces from `piece` on, which start afresh.
    void Deflate(std::size_t piece, const char* bytes, std::size_t count);
    void Inflate(std::size_t piece, char* bytes, std::size_t count) const;
    std::size_t StoredBytes() const;

private:
    std::vector<char> m_Room;
    std::vector<std::size_t> m_Lengths;
};

} // namespace bench
