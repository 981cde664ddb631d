#include "rds_HostFiles.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "utl_SystemText.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <map>
#include <memory>
#include <optional>
#include <pwd.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{
using Attributes = struct stat;

constexpr const char* kCannotList = "*** Error: Can't list directory %s, reason:\n  %s.";
constexpr const char* kCannotLook = "*** Error: Can't get the attributes of %s, reason:\n  %s.";

constexpr std::string_view kDatabaseSuffix = ".rdx";
constexpr std::size_t kMostShownBytes = 1024;
constexpr mode_t kPermissionBits = 07777;
constexpr std::size_t kFirstRecordBytes = 1024;
constexpr std::size_t kMostRecordBytes = 1024UL * 1024;

/// The names of users or of groups by their numbers. A listing asks for few of them again and again, and some hosts go to
/// the network for each.
class Names
{
public:
    using Find = std::optional<std::string> (*)(unsigned number);
    explicit Names(Find find) : m_Find(find) {}

    const cow_String& Of(unsigned number)
    {
        const auto known = m_Known.find(number);
        if (known != m_Known.end()) return known->second;
        return m_Known.emplace(number, cow_String(m_Find(number).value_or(std::to_string(number))))
            .first->second;
    }

private:
    Find m_Find;
    std::map<unsigned, cow_String> m_Known;
};

struct DirectoryCloser
{
    void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;
} // namespace

// --- refusals ---

static cow_String Shown(const cow_String& path)
{
    std::string shown(path.View().substr(0, kMostShownBytes));
    if (shown.size() < path.View().size()) shown += "...";
    std::replace(shown.begin(), shown.end(), '\0', '?');
    return cow_String(shown);
}

[[noreturn]] static void Refuse(const char* format, const cow_String& path, const cow_String& reason)
{
    nex_ThrowText(atr_Message(format, Shown(path), reason), "rds_SFileBrowsing");
}

[[noreturn]] static void Refuse(const char* format, const cow_String& path, int error)
{
    Refuse(format, path, utl_SystemText(error));
}

static bool HasNul(const cow_String& path) { return path.View().find('\0') != std::string_view::npos; }

static void RefuseNul(const char* format, const cow_String& path)
{
    if (HasNul(path)) Refuse(format, path, cow_String("The path holds a NUL byte"));
}

// --- attributes ---

// `read` is the system's call for a record with texts, which needs a block of a size that nobody knows.
template <class Record, class Read>
static std::optional<std::string> NameInRecord(Read read, char* Record::*name)
{
    for (std::vector<char> block(kFirstRecordBytes); block.size() <= kMostRecordBytes;
         block.resize(2 * block.size()))
    {
        Record record{};
        Record* found = nullptr;
        const int error = read(&record, block.data(), block.size(), &found);
        if (error == ERANGE) continue;
        if (error != 0 || found == nullptr) return std::nullopt;
        return record.*name;
    }
    return std::nullopt;
}

static std::optional<std::string> UserName(unsigned number)
{
    return NameInRecord([number](passwd* record, char* block, std::size_t bytes, passwd** found)
                        { return ::getpwuid_r(number, record, block, bytes, found); },
                        &passwd::pw_name);
}

static std::optional<std::string> GroupName(unsigned number)
{
    return NameInRecord([number](group* record, char* block, std::size_t bytes, group** found)
                        { return ::getgrgid_r(number, record, block, bytes, found); },
                        &group::gr_name);
}

static int KindOf(mode_t mode)
{
    if (S_ISREG(mode)) return rds_DirectoryEntity::File;
    if (S_ISDIR(mode)) return rds_DirectoryEntity::Directory;
    if (S_ISLNK(mode)) return rds_DirectoryEntity::DanglingLink; // all others were followed
    return rds_DirectoryEntity::Special;
}

static unsigned Seconds(const timespec& time)
{
    return static_cast<unsigned>(std::clamp<std::time_t>(time.tv_sec, 0, UINT_MAX));
}

namespace
{
/// What an entry is; for a link what it leads to is, or the link itself where it leads nowhere.
struct Seen
{
    Attributes attributes{};
    bool isLink = false;
};

/// Makes entities with all attributes.
class Describer
{
public:
    rds_DirectoryEntity Entity(const Seen& seen, const cow_String& name)
    {
        const Attributes& attributes = seen.attributes;
        rds_DirectoryEntity entity(
            name, m_Users.Of(attributes.st_uid), m_Groups.Of(attributes.st_gid), KindOf(attributes.st_mode),
            static_cast<short>(attributes.st_mode & kPermissionBits), seen.isLink ? short{1} : short{0},
            Seconds(attributes.st_mtim), Seconds(attributes.st_atim),
            S_ISREG(attributes.st_mode) ? static_cast<std::uint64_t>(attributes.st_size) : 0);
        entity.m_Word3 = Seconds(attributes.st_ctim);
        return entity;
    }

private:
    Names m_Users{UserName};
    Names m_Groups{GroupName};
};
} // namespace

// Any other error leaves open where a link leads.
static bool LeadsNowhere(int error) { return error == ENOENT || error == ENOTDIR || error == ELOOP; }

// `path` below the open directory. Nothing when the system refuses; errno says why.
static std::optional<Seen> Look(int directory, const char* path)
{
    Seen seen;
    if (::fstatat(directory, path, &seen.attributes, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    seen.isLink = S_ISLNK(seen.attributes.st_mode);
    if (!seen.isLink) return seen;
    Attributes followed{};
    if (::fstatat(directory, path, &followed, 0) == 0)
        seen.attributes = followed;
    else if (!LeadsNowhere(errno))
        return std::nullopt;
    return seen;
}

rds_DirectoryEntity rds_HostEntity(const cow_String& path)
{
    RefuseNul(kCannotLook, path);
    const std::optional<Seen> seen = Look(AT_FDCWD, path.CString());
    if (!seen) Refuse(kCannotLook, path, errno);
    return Describer().Entity(*seen, path);
}

static bool IsHost(const cow_String& path, mode_t type)
{
    RefuseNul(kCannotLook, path);
    Attributes attributes{};
    if (::stat(path.CString(), &attributes) == 0) return (attributes.st_mode & S_IFMT) == type;
    if (errno != ENOENT && errno != ENOTDIR) Refuse(kCannotLook, path, errno);
    return false;
}

bool rds_IsHostDirectory(const cow_String& path) { return IsHost(path, S_IFDIR); }
bool rds_IsHostFile(const cow_String& path) { return IsHost(path, S_IFREG); }

void rds_RemoveHostFile(const cow_String& path) noexcept
{
    if (!HasNul(path)) ::unlink(path.CString());
}

// --- listings ---

static bool IsFilter(int filter)
{
    return filter >= static_cast<int>(rdb_FileFilterID::All) &&
           filter <= static_cast<int>(rdb_FileFilterID::Databases);
}

static bool LetsNameThrough(rdb_FileFilterID filter, std::string_view name)
{
    if (name == "." || name == "..") return false;
    return filter == rdb_FileFilterID::All || name.front() != '.';
}

static bool LetsEntryThrough(rdb_FileFilterID filter, const rds_DirectoryEntity& entity)
{
    if (filter == rdb_FileFilterID::All || filter == rdb_FileFilterID::Visible) return true;
    if (entity.m_Kind == rds_DirectoryEntity::Directory) return true;
    return filter == rdb_FileFilterID::Databases && entity.m_Kind == rds_DirectoryEntity::File &&
           entity.m_Name.View().ends_with(kDatabaseSuffix);
}

[[noreturn]] static void RefuseSize(const cow_String& path)
{
    Refuse(kCannotList, path, cow_String("It holds more than a listing can carry"));
}

// Null behind the last entry.
static const char* NextName(DIR* directory, const cow_String& path)
{
    errno = 0;
    const dirent* entry = ::readdir(directory);
    if (entry == nullptr && errno != 0) Refuse(kCannotList, path, errno);
    return entry == nullptr ? nullptr : entry->d_name;
}

static cow_List<rds_DirectoryEntity> SortedByName(std::vector<rds_DirectoryEntity>& entities)
{
    std::sort(entities.begin(), entities.end(),
              [](const auto& left, const auto& right) { return left.m_Name.View() < right.m_Name.View(); });
    cow_List<rds_DirectoryEntity> list;
    for (const rds_DirectoryEntity& entity : entities) list.Append(entity);
    return list;
}

cow_List<rds_DirectoryEntity> rds_ListHostDirectory(const cow_String& path, int filter, char flag,
                                                    rds_ListingRoom room)
{
    RefuseNul(kCannotList, path);
    if (!IsFilter(filter)) Refuse(kCannotList, path, atr_Message("There is no filter %d", filter));
    const Directory directory(::opendir(path.CString()));
    if (directory == nullptr) Refuse(kCannotList, path, errno);

    const auto filterId = static_cast<rdb_FileFilterID>(filter);
    std::vector<rds_DirectoryEntity> entities;
    Describer describer;
    while (const char* name = NextName(directory.get(), path))
    {
        if (!LetsNameThrough(filterId, name)) continue;
        const std::optional<Seen> seen = Look(::dirfd(directory.get()), name);
        rds_DirectoryEntity entity(name,
                                   seen ? KindOf(seen->attributes.st_mode) : rds_DirectoryEntity::Unknown);
        if (!LetsEntryThrough(filterId, entity)) continue;
        if (seen && flag == rds_CFileBrowsing::AllAttributes) entity = describer.Entity(*seen, entity.m_Name);
        if (!room.Take(entity)) RefuseSize(path);
        entities.push_back(entity);
    }
    return SortedByName(entities);
}
