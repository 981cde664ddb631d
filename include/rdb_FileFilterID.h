#pragma once

/// Which entries of a directory a listing asks for. The numbers travel to the other host and stay as they are; one
/// that the host does not know is refused by it.
enum class rdb_FileFilterID : int
{
    All = 0,         ///< everything but "." and ".."
    Visible = 1,     ///< all whose names don't begin with "."
    Directories = 2, ///< the visible directories, and visible links to directories
    Databases = 3,   ///< what Directories has, and the visible regular files whose names end in ".rdx"
};
