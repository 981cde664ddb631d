#pragma once

#include "cow_String.h"

/// Finds files below the directories of a search path, which an environment variable holds with ":" between them.
class utl_PathFinder
{
public:
    /// The path of the first regular file DIRECTORY/`subDirectory`/`file`; the empty string when there is none. An empty
    /// `subDirectory` adds nothing. Empty entries of the search path are passed over: they would mean the directory
    /// that the program happens to stand in.
    /// `executable`: only a file that this process may run counts. The two others choose between the directories of
    /// platforms that keep several; here they mean nothing.
    static cow_String getSubDirPath(const cow_String& variable, const cow_String& subDirectory,
                                    const cow_String& file, bool executable, bool, bool);
};
