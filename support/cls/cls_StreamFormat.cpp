#include "cls_StreamFormat.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "omi_Swapper.h"

#include <limits>
#include <zlib.h>

void cls_ThrowDamaged(const char* what)
{
    nex_ThrowText(atr_Message("*** Error: The stream of objects is damaged: %s.", atr_Message(what)));
}

void cls_AppendNumber(std::string& bytes, std::uint32_t number)
{
    for (; number >= 0x80; number >>= 7) bytes += static_cast<char>((number & 0x7F) | 0x80);
    bytes += static_cast<char>(number);
}

void cls_AppendText(std::string& bytes, std::string_view text)
{
    cls_AppendNumber(bytes, static_cast<std::uint32_t>(text.size())); // a cow_String is shorter than 2 GiB
    bytes += text;
}

unsigned char cls_BodyCursor::TakeByte()
{
    if (m_Rest.empty()) cls_ThrowDamaged("it ends inside an object");
    const auto byte = static_cast<unsigned char>(m_Rest.front());
    m_Rest.remove_prefix(1);
    return byte;
}

std::uint32_t cls_BodyCursor::TakeNumber()
{
    std::uint64_t number = 0;
    for (int shift = 0; shift < 35; shift += 7)
    {
        const unsigned char byte = TakeByte();
        number |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
        if ((byte & 0x80) != 0) continue;
        if (number > std::numeric_limits<std::uint32_t>::max()) break;
        return static_cast<std::uint32_t>(number);
    }
    cls_ThrowDamaged("a number has more than 32 bits");
}

std::string_view cls_BodyCursor::TakeText()
{
    const std::uint32_t length = TakeNumber();
    if (length > m_Rest.size()) cls_ThrowDamaged("a text runs past its end");
    const std::string_view text = m_Rest.substr(0, length);
    m_Rest.remove_prefix(length);
    return text;
}

static const omi_Swapper s_Swapped(omi_Swapper::Stored);

static std::uint32_t Check(std::string_view bytes)
{
    return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

static void AppendWord(std::string& bytes, std::uint32_t word)
{
    char stored[4];
    omi_Store(stored, word, s_Swapped);
    bytes.append(stored, sizeof stored);
}

static void CheckBodyLength(std::size_t length)
{
    if (length > cls_MostBodyBytes)
        nex_ThrowText(atr_Message("*** Error: A stream of objects can't hold more than 16 MiB."));
}

std::string cls_WrapBody(std::string_view body)
{
    CheckBodyLength(body.size());
    std::string stream(cls_StreamMagic);
    stream += static_cast<char>(cls_StreamVersion);
    AppendWord(stream, static_cast<std::uint32_t>(body.size()));
    stream += body;
    AppendWord(stream, Check(stream));
    return stream;
}

std::uint64_t cls_StreamLength(std::string_view head)
{
    if (head.size() < cls_StreamHeadBytes) cls_ThrowDamaged("it ends inside its head");
    if (!head.starts_with(cls_StreamMagic))
        nex_ThrowText(atr_Message("*** Error: This is no stream of objects."));
    const int version = static_cast<unsigned char>(head[cls_StreamMagic.size()]);
    if (version != cls_StreamVersion)
        nex_ThrowText(
            atr_Message("*** Error: The stream of objects has version %d; only version %d is known.", version,
                        cls_StreamVersion));
    const auto body = omi_Load<std::uint32_t>(head.data() + cls_StreamMagic.size() + 1, s_Swapped);
    CheckBodyLength(body);
    return std::uint64_t{cls_StreamHeadBytes} + body + cls_StreamCheckBytes;
}

std::string_view cls_UnwrapBody(std::string_view stream)
{
    if (cls_StreamLength(stream) != stream.size())
        cls_ThrowDamaged("its length is not the one that it tells");
    const std::size_t checked = stream.size() - cls_StreamCheckBytes;
    if (omi_Load<std::uint32_t>(stream.data() + checked, s_Swapped) != Check(stream.substr(0, checked)))
        cls_ThrowDamaged("its bytes were changed");
    return stream.substr(cls_StreamHeadBytes, checked - cls_StreamHeadBytes);
}
