#pragma once

// A stream of objects: what `cls_WriteVisitor` writes and `cls_ReadVisitor` reads.
//
//   byte 0         4          5               9                9 + n       13 + n
//        +---------+----------+---------------+----------------+-----------+
//        | "clsS"  | version  | body length n |      body      |  CRC-32   |
//        | 4 chars | 1 (byte) |   (uint32)    |    n bytes     | (uint32)  |
//        +---------+----------+---------------+----------------+-----------+
//
// The two words are little-endian; the CRC is that of all bytes before it. The body is a row of objects. In it a
// `number` is an unsigned one of up to 32 bits, seven bits a byte, the low ones first, with the top bit set in all bytes
// but the last; a `text` is a number, its length, and as many bytes.
//
//   object  :=  0 class                      no object, where one of that class could be
//            |  1 class item* 0              an object; it gets the next number, counted from 1
//            |  n + 1                        the object with number n again; it has ended before
//   class   :=  c                            a class met before, counted from 0
//            |  c number number text         the next class: type id, version and name
//   item    :=  1 class item* 0              what the object's base class holds
//            |  2 text object                an element of a collection, with its key
//            |  a + 3 value                  attribute a of the class, met before, counted from 0
//            |  a + 3 text kind value        the next attribute of the class: name and kind
//   kind    :=  1  value is a number; a negative integer -i is 2i - 1, any other i is 2i
//            |  2  value is a byte, 0 or 1
//            |  3  value is a text
//            |  4  value is an object
//            |  5 number  value is an object that is a collection, of the collection type `number`
//
// A name stands once, in front of its first use. What a reader doesn't know it can pass over, since kinds tell lengths;
// what the stored class lacks is simply not there. A collection has type id, version 0 and an empty name for a class.

#include "cow_String.h"

#include <cstdint>
#include <string>
#include <string_view>

inline constexpr std::string_view cls_StreamMagic = "clsS";
inline constexpr int cls_StreamVersion = 1;
inline constexpr std::size_t cls_StreamHeadBytes = 9;
inline constexpr std::size_t cls_StreamCheckBytes = 4;
/// The longest body: a reader needs up to some thirty times its length, and no file is to claim all memory.
inline constexpr std::uint32_t cls_MostBodyBytes = 16U << 20;
/// Objects in objects, deeper than any class of ours goes: a reader's stack stays small.
inline constexpr int cls_DeepestObject = 32;

inline constexpr std::uint32_t cls_ObjectNone = 0;
inline constexpr std::uint32_t cls_ObjectNew = 1;
inline constexpr std::uint32_t cls_ItemEnd = 0;
inline constexpr std::uint32_t cls_ItemBase = 1;
inline constexpr std::uint32_t cls_ItemElement = 2;
inline constexpr std::uint32_t cls_ItemFirstAttribute = 3;

enum class cls_StreamKind : unsigned char
{
    Integer = 1,
    Boolean = 2,
    Text = 3,
    Object = 4,
    Collection = 5,
};

void cls_AppendNumber(std::string& bytes, std::uint32_t number);
void cls_AppendText(std::string& bytes, std::string_view text);
constexpr std::uint32_t cls_Folded(std::int32_t value)
{
    const auto bits = static_cast<std::uint32_t>(value);
    return value < 0 ? ~(bits << 1) : bits << 1;
}
constexpr std::int32_t cls_Unfolded(std::uint32_t folded)
{
    return static_cast<std::int32_t>((folded & 1) != 0 ? ~(folded >> 1) : folded >> 1);
}

/// Takes a body apart, and never looks behind its end.
/// Throws: nex_TextException of `cls_ThrowDamaged` for what can't be.
class cls_BodyCursor
{
public:
    explicit cls_BodyCursor(std::string_view body) noexcept : m_Rest(body) {}
    bool AtEnd() const noexcept { return m_Rest.empty(); }
    std::uint32_t TakeNumber();
    unsigned char TakeByte();
    /// The text lies in the body.
    std::string_view TakeText();

private:
    std::string_view m_Rest;
};

/// The stream of a body.
/// Throws: nex_TextException when the body is longer than `cls_MostBodyBytes`.
std::string cls_WrapBody(std::string_view body);
/// The length of the whole stream that begins with these `cls_StreamHeadBytes` bytes.
/// Throws: nex_TextException when they are no head of a stream, or one of a later version, or of a body that is longer
/// than `cls_MostBodyBytes`.
std::uint64_t cls_StreamLength(std::string_view head);
/// The body, inside `stream`, of a stream that is whole and unchanged.
/// Throws: nex_TextException for any other.
std::string_view cls_UnwrapBody(std::string_view stream);

/// Throws a nex_TextException: "*** Error: The stream of objects is damaged: WHAT."
[[noreturn]] void cls_ThrowDamaged(const char* what);
