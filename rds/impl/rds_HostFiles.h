#pragma once

#include "rds_BrowsingFormat.h"

// What the browsing service answers, as the file system of this host has it. A path is resolved as the system does it,
// relative ones below the directory in which the process runs; nothing is ever opened but directories, so that a FIFO or
// a device neither waits nor does anything.
// Throws: nex_TextException with what was wanted, the path and the system's words. A very long path is shortened in it,
// and a path with a NUL byte is refused: the system would take what stands in front of it.

/// The entries of a directory that the filter, an rdb_FileFilterID, lets through, by their names in byte order; no more
/// than there is room for. With any flag but rds_CFileBrowsing::AllAttributes they have their name and kind alone, and
/// nobody is asked who their owners are. An entry that can't be looked at is listed without attributes.
cow_List<rds_DirectoryEntity> rds_ListHostDirectory(const cow_String& path, int filter, char flag,
                                                    rds_ListingRoom room = {});

/// What does not exist is neither.
bool rds_IsHostDirectory(const cow_String& path);
/// A regular file.
bool rds_IsHostFile(const cow_String& path);

/// The attributes, with the path as the name.
rds_DirectoryEntity rds_HostEntity(const cow_String& path);

/// Takes away the name of a file, if it can.
void rds_RemoveHostFile(const cow_String& path) noexcept;
