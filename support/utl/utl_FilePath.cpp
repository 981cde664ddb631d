#include "utl_FilePath.h"

#include "utl_UrlParser.h"

#include <cstdlib>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

utl_Stat::utl_Stat(const cow_String& path)
{
    struct stat status
    {
    };
    m_Exists = ::stat(path.CString(), &status) == 0;
    m_IsRegularFile = m_Exists && S_ISREG(status.st_mode);
}

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
bool utl_FilePath::IsExecutable() const { return utl_Stat(m_Path).IsRegularFile() && Allows(X_OK); }

cow_String utl_FilePath::AbsolutePathName() const
{
    if (m_Path.IsEmpty() || IsAbsolute(m_Path)) return m_Path;
    const std::unique_ptr<char, decltype(&std::free)> current(::getcwd(nullptr, 0), &std::free);
    if (current == nullptr) return {};
    const cow_String directory(current.get());
    return directory.View() == "/" ? directory + m_Path : directory + "/" + m_Path;
}
