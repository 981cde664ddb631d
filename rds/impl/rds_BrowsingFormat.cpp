#include "rds_BrowsingFormat.h"

#include "utl_BinIStream.h"
#include "utl_BinOStream.h"

#include <cstdint>

namespace
{
enum class ThirdWord
{
    Absent,
    Present
};
} // namespace

static void WriteName(utl_BinOStream& out, const rds_DirectoryEntity& entity)
{
    out.WriteInt(entity.m_Kind);
    out.WriteString(entity.m_Name);
}

static void WriteBehindName(utl_BinOStream& out, const rds_DirectoryEntity& entity, ThirdWord thirdWord)
{
    out.WriteShort(entity.m_Short1);
    out.WriteShort(entity.m_Short2);
    out.WriteUInt(entity.m_Word1);
    out.WriteUInt(entity.m_Word2);
    if (thirdWord == ThirdWord::Present) out.WriteUInt(entity.m_Word3);
    // kept: the second text goes first. Test: TheTextsTravelInReverseOrder.
    out.WriteString(entity.m_Text2);
    out.WriteString(entity.m_Text1);
    out.WriteUInt64(entity.m_Large);
}

void rds_WriteAttributes(utl_BinOStream& out, const rds_DirectoryEntity& entity)
{
    WriteName(out, entity);
    WriteBehindName(out, entity, ThirdWord::Present);
}

void rds_WriteListed(utl_BinOStream& out, const rds_DirectoryEntity& entity, char flag)
{
    WriteName(out, entity);
    // kept: whatever else the flag is, an entry ends here. Test: AFlagThatIsNoneIsAnsweredInTheShortFormWithThatFlag.
    if (flag == rds_CFileBrowsing::AllAttributes) WriteBehindName(out, entity, ThirdWord::Absent);
}

static rds_DirectoryEntity ReadBehindName(utl_BinIStream& in, const cow_String& name, int kind,
                                          ThirdWord thirdWord)
{
    const short short1 = in.ReadShort();
    const short short2 = in.ReadShort();
    const unsigned word1 = in.ReadUInt();
    const unsigned word2 = in.ReadUInt();
    // kept: the third word is read and dropped. Test: TheThirdWordOfAnAttributesReplyIsDropped.
    if (thirdWord == ThirdWord::Present) static_cast<void>(in.ReadUInt());
    const cow_String text2 = in.ReadString();
    const cow_String text1 = in.ReadString();
    const std::uint64_t large = in.ReadUInt64();
    return {name, text1, text2, kind, short1, short2, word1, word2, large};
}

rds_DirectoryEntity rds_ReadAttributes(utl_BinIStream& in)
{
    const int kind = in.ReadInt();
    const cow_String name = in.ReadString();
    return ReadBehindName(in, name, kind, ThirdWord::Present);
}

rds_DirectoryEntity rds_ReadListedAttributes(utl_BinIStream& in, const cow_String& name, int kind)
{
    return ReadBehindName(in, name, kind, ThirdWord::Absent);
}

bool rds_ListingRoom::Take(const rds_DirectoryEntity& entity) noexcept
{
    // Each text comes from a stream or a file system, at most 16 MiB long: the sum fits.
    const int bytes = entity.m_Name.Length() + entity.m_Text1.Length() + entity.m_Text2.Length();
    if (m_Entries == 0 || bytes > m_TextBytes) return false;
    --m_Entries;
    m_TextBytes -= bytes;
    return true;
}
