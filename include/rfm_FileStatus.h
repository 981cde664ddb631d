#pragma once

/// What a look at a database's file from outside tells a reader.
struct rfm_FileStatus
{
    enum RfmFileStatus : int
    {
        RfmFileUnchanged = 0,     ///< nothing changed since the last look
        RfmFileReplaced = 1,      ///< another database now has this name; the answer stays
        RfmFileUpdated = 2,       ///< the writer has flushed: a reader can `Snap`
        RfmFileGone = 3,          ///< the file does not exist any more
        RfmFileInTransaction = 4, ///< a writer holds the reader semaphore: wait
    };
};
