#pragma once

#include "cow_List.h"
#include "cow_String.h"
#include "rfm_Export.h"

#include <cstdint>

/// One entry of a directory on another host, a plain value. What a constructor is not given is 0 or empty.
///
/// The browsing service of this library fills it as follows. A symbolic link is followed: all attributes are those of
/// what it leads to, and `m_Short2` tells that there is a link. Names are bytes as the file system has them, UTF-8 or
/// not. An entry that could not be looked at, because it went away meanwhile for example, or as a link leads to where the
/// user may not look, has its name, the kind `Unknown`, and nothing else.
///
/// | field     | content                                                                                       |
/// |-----------|-----------------------------------------------------------------------------------------------|
/// | `m_Name`  | in a listing the name inside the directory, else the path as it was asked for                 |
/// | `m_Text1` | the owner's name; where the number has no name, the number in decimal                         |
/// | `m_Text2` | the group's, in the same way                                                                  |
/// | `m_Kind`  | one of `Kind`                                                                                 |
/// | `m_Short1`| permissions: the lower 12 bits of the mode, such as 0644                                      |
/// | `m_Short2`| 1 for a symbolic link, else 0                                                                 |
/// | `m_Word1` | last modification, in seconds since 1970 UTC; 0 before that, the largest number after 2106    |
/// | `m_Word2` | last access, in the same way                                                                  |
/// | `m_Word3` | last change of the attributes; no reply hands it on to a client, see `rds_CFileBrowsing`      |
/// | `m_Large` | size of a regular file in bytes, 0 for all others                                             |
///
/// Threads: an entry, and all copies that still share its texts, belong to one thread at a time.
class RFM_EXPORT rds_DirectoryEntity
{
public:
    /// The values of `m_Kind`. The numbers travel between hosts and stay as they are.
    enum Kind : int
    {
        Unknown = 0,      ///< it could not be looked at
        File = 1,         ///< a regular file
        Directory = 2,    ///< a directory
        Special = 3,      ///< a FIFO, a socket or a device
        DanglingLink = 4, ///< a symbolic link that leads nowhere; the other attributes are the link's own
    };

    /// Every field is cleared.
    rds_DirectoryEntity() = default;
    explicit rds_DirectoryEntity(const cow_String& name);
    rds_DirectoryEntity(const cow_String& name, int kind);
    /// All fields but `m_Word3`, which is 0.
    rds_DirectoryEntity(const cow_String& name, const cow_String& text1, const cow_String& text2, int kind,
                        short short1, short short2, unsigned word1, unsigned word2, std::uint64_t large);

    cow_String m_Name;
    cow_String m_Text1;
    cow_String m_Text2;
    int m_Kind = 0;
    short m_Short1 = 0;
    short m_Short2 = 0;
    unsigned m_Word1 = 0;
    unsigned m_Word2 = 0;
    unsigned m_Word3 = 0;
    std::uint64_t m_Large = 0;
};
