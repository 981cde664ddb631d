#pragma once

#include "cow_String.h"

/// Whether something of this name exists; what a symbolic link points to counts.
class utl_Stat
{
public:
    explicit utl_Stat(const cow_String& path);
    bool Exists() const noexcept { return m_Exists; }

private:
    bool m_Exists;
};

/// Tells the URL of a remote database, "mrkrdb://...", from the name of a file.
class utl_UrlParser
{
public:
    static bool IsUrl(const cow_String& text);
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
    bool IsExecutable() const;
    const cow_String& Path() const noexcept { return m_Path; }

private:
    bool Allows(int mode) const;
    cow_String m_Path;
};
