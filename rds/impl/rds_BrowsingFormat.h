#pragma once

#include "rds_CFileBrowsing.h"

// What a browser and the service say to each other, over the two pipes of a relay. Requests and replies alternate, one at
// a time. There is no framing: each message is the bare sequence of its fields, and each side knows what comes next only
// from what it has read. The bytes of the fields are drawn in utl_BinStreamFormat.h; numbers are big-endian.
//
// A request is a code and its fields:
//
//   | Int 0 | String path | Int filter | Schar flag |    list    -> listing reply
//   | Int 1 | String path |                              is dir  -> answer reply
//   | Int 2 | String path |                              is file -> answer reply
//   | Int 3 | String path |                              stat    -> attributes reply
//   | Int 4 |                                            version -> | Int 2 |
//   | Int 5 |                                            platform-> | String platform |
//   | Int 6 |                                            exit    -> nothing; the service ends
//   | Int 7 | String path |                              remove  -> nothing
//
// The replies to 0 to 3 begin with a status:
//
//   | Int 0     | String message |                                 refused
//   | Int not 0 | Int answer |                                     answer
//   | Int not 0 | attributes |                                     attributes
//   | Int not 0 | Schar flag | Int count | count times entry |     listing
//
// The attributes of one entry. An entry of a listing with the flag 'A' is the same without the third word; with the flag
// 'S' it ends behind the name. The texts travel in reverse order.
//
//   | Int kind | String name | Short 1 | Short 2 | UInt word 1 | UInt word 2 | UInt word 3 |
//   | String text 2 | String text 1 | UInt64 large |
class utl_BinIStream;
class utl_BinOStream;

enum rds_BrowsingRequest : int
{
    rds_ListDirReq = 0,
    rds_IsDirReq = 1,
    rds_IsFileReq = 2,
    rds_StatReq = 3,
    rds_VersionReq = 4,
    rds_PlatformReq = 5,
    rds_ExitReq = 6,
    rds_RemoveReq = 7,
};

inline constexpr int rds_BrowsingVersion = 2;
inline constexpr int rds_RefusedStatus = 0;
inline constexpr int rds_DoneStatus = 1; // written; every number but 0 is read as done

void rds_WriteAttributes(utl_BinOStream& out, const rds_DirectoryEntity& entity);
void rds_WriteListed(utl_BinOStream& out, const rds_DirectoryEntity& entity, char flag);

/// The entity of an attributes record.
rds_DirectoryEntity rds_ReadAttributes(utl_BinIStream& in);
/// The entity of a listing with all attributes, whose kind and name have been read.
rds_DirectoryEntity rds_ReadListedAttributes(utl_BinIStream& in, const cow_String& name, int kind);

/// What one listing may still hold.
class rds_ListingRoom
{
public:
    rds_ListingRoom() noexcept = default;
    rds_ListingRoom(int entries, int textBytes) noexcept : m_Entries(entries), m_TextBytes(textBytes) {}

    /// Takes the room of one entry more; false when there is none.
    bool Take(const rds_DirectoryEntity& entity) noexcept;

private:
    int m_Entries = rds_CFileBrowsing::kMostEntries;
    int m_TextBytes = rds_CFileBrowsing::kMostTextBytes;
};
