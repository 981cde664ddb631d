#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace farend
{
/// The secret that both ends know: a key that marlek made, or a person's password. Its bytes leave memory with it.
class Key
{
public:
    static constexpr std::size_t kLeastBytes = 8;
    static constexpr std::size_t kMostBytes = 255; // its length travels as one byte
    static constexpr std::size_t kMadeBytes = 64;  // 32 random bytes as hexadecimal digits

    Key() = default;
    /// Throws: Failure for fewer than 8 or more than 255 bytes.
    explicit Key(std::string_view bytes);
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key();

    /// A fresh key from the system's source of random bytes.
    /// Throws: Failure.
    void Make();
    /// Takes a length byte and as many bytes from `descriptor`, and not one byte more.
    /// Throws: Failure, also where the length is not one of a key.
    void ReadFrom(int descriptor);
    /// Takes all that comes from `descriptor` until its end. Nothing is trimmed: a line end belongs to the password.
    /// Throws: Failure, also where that is too short or too long for a key.
    void ReadAllFrom(int descriptor);
    /// Writes Message().
    /// Throws: Failure.
    void WriteTo(int descriptor) const;

    std::string_view Bytes() const { return {m_Message.data() + 1, Size()}; }
    /// The length byte and the bytes, as ReadFrom takes them.
    std::string_view Message() const { return {m_Message.data(), Size() + 1}; }
    /// Whether it looks like one that Make() made, so that guessing it is out of the question.
    bool IsMade() const;

private:
    void Put(std::string_view bytes);
    std::size_t Size() const { return static_cast<unsigned char>(m_Message[0]); }

    std::array<char, 1 + kMostBytes> m_Message{};
};

/// Fills `bytes` from the system's source of random bytes.
/// Throws: Failure.
void FillWithRandomBytes(unsigned char* bytes, std::size_t count);
} // namespace farend
