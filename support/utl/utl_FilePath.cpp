#include "utl_FilePath.h"

#include <sys/stat.h>
#include <unistd.h>

utl_Stat::utl_Stat(const cow_String& path)
{
    struct stat status
    {
    };
    m_Exists = ::stat(path.CString(), &status) == 0;
}

bool utl_UrlParser::IsUrl(const cow_String& text) { return text.View().starts_with("mrkrdb://"); }

static bool IsAbsolute(const cow_String& path)
{
    return path.View().starts_with('/') || utl_UrlParser::IsUrl(path);
}

utl_FilePath::utl_FilePath(const cow_String& path, const cow_String& base)
    : m_Path(base.IsEmpty() || IsAbsolute(path) ? path : base + "/" + path)
{
}

bool utl_FilePath::Allows(int mode) const { return ::access(m_Path.CString(), mode) == 0; }

bool utl_FilePath::Exists() const { return utl_UrlParser::IsUrl(m_Path) || utl_Stat(m_Path).Exists(); }
bool utl_FilePath::IsReadable() const { return utl_UrlParser::IsUrl(m_Path) || Allows(R_OK); }
bool utl_FilePath::IsWriteable() const { return Allows(W_OK); }
bool utl_FilePath::IsExecutable() const { return Allows(X_OK); }
