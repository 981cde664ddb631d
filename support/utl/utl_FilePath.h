#pragma once

#include "cow_String.h"

/// Whether something of this name exists; what a symbolic link points to counts.
class utl_Stat
{
public:
    explicit utl_Stat(const cow_String& path);
    bool Exists() const noexcept { return m_Exists; }
    bool IsRegularFile() const noexcept { return m_IsRegularFile; }

private:
    bool m_Exists = false;
    bool m_IsRegularFile = false;
};

/// A path, or a name relative to `base` when that is not empty. A URL counts as existing and readable: whether it is,
/// only its server knows.
class utl_FilePath
{
public:
    utl_FilePath(const cow_String& path, const cow_String& base);
    bool Exists() const;
    bool IsReadable() const;
    bool IsWriteable() const;
    /// A regular file that this process may run. A directory, which may be entered by the same right, is none.
    bool IsExecutable() const;
    const cow_String& Path() const noexcept { return m_Path; }
    /// The path from the root on, behind the current directory where it is relative; nothing else in it is changed.
    /// Empty for the empty path, and when the current directory has gone. A URL is its own.
    cow_String AbsolutePathName() const;

private:
    bool Allows(int mode) const;
    cow_String m_Path;
};
