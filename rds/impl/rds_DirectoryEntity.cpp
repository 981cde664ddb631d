#include "rds_DirectoryEntity.h"

rds_DirectoryEntity::rds_DirectoryEntity(const cow_String& name) : m_Name(name) {}

rds_DirectoryEntity::rds_DirectoryEntity(const cow_String& name, int kind) : m_Name(name), m_Kind(kind) {}

rds_DirectoryEntity::rds_DirectoryEntity(const cow_String& name, const cow_String& text1,
                                         const cow_String& text2, int kind, short short1, short short2,
                                         unsigned word1, unsigned word2, std::uint64_t large)
    : m_Name(name),
      m_Text1(text1),
      m_Text2(text2),
      m_Kind(kind),
      m_Short1(short1),
      m_Short2(short2),
      m_Word1(word1),
      m_Word2(word2),
      m_Large(large)
{
}
