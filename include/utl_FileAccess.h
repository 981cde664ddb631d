#pragma once

/// How a file is opened. Callers may pass the numbers.
enum utl_FileAccess : int
{
    utl_FileAccessRead = 0,   ///< an existing file, for reading only
    utl_FileAccessUpdate = 1, ///< an existing file, for reading and writing
    utl_FileAccessCreate = 2, ///< a new, empty file; an older one of that name is replaced
};
