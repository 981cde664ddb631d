#include "utl_File.h"

#include "nex_Report.h"
#include "utl_System.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace
{
// One block serves both directions. 256 KiB gathered writes make the cost of a call vanish against that of its bytes;
// larger ones only leave the cache.
constexpr int kBlockBytes = 256 * 1024;
// Reading ahead starts when this much came in sequence: a lone row or a header must not cost 64 KiB.
constexpr std::int64_t kRunBeforeAhead = 2048;
constexpr std::int64_t kLeastAhead = 64 * 1024;
constexpr int kMostAttempts = 100;
// A longer read pays for its call by its bytes.
constexpr int kMostByPages = 2048;
// A file that is opened, looked into at some places and closed has no use for pages.
constexpr int kJumpsBeforePages = 16;
constexpr int kPageBytes = utl_PageCache::kPageBytes;

// What is known of an open file without its times: where these are exact, a look at them makes the next write of any
// process to the file 1.2 us dearer (2.8), and a follower looks all the time.
bool LookAt(int descriptor, unsigned wanted, struct statx& status)
{
    return ::statx(descriptor, "", AT_EMPTY_PATH, wanted, &status) == 0;
}

std::int64_t PageOf(std::int64_t position) { return position / kPageBytes; }
int PlaceInPage(std::int64_t position) { return static_cast<int>(position % kPageBytes); }
} // namespace

utl_File::utl_File(const cow_String& name, utl_FileAccess access, utl_FileSharing sharing)
{
    Open(name, access, sharing);
}

utl_File::~utl_File()
{
    try
    {
        Close();
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
    }
}

void utl_File::Open(const cow_String& name, utl_FileAccess access, utl_FileSharing)
{
    Close();
    m_Name = name;
    // A name with a NUL would silently open the file in front of it.
    if (std::strlen(name.CString()) != static_cast<std::size_t>(name.Length())) Refuse("open", EINVAL);
    switch (access)
    {
    case utl_FileAccessRead: OpenExisting(name, O_RDONLY); break;
    case utl_FileAccessUpdate: OpenExisting(name, O_RDWR); break;
    case utl_FileAccessCreate: OpenFresh(name); break;
    default: nex_ThrowAssert("!\"Incorrect file access.\"");
    }
    m_Position = 0;
    Forget();
}

void utl_File::Refuse(const char* action, int error, const char* sourceName, int line) const
{
    // A text of its own: the count of a shared one is plain, and positioned transfers of several threads may be refused
    // at once.
    utl_FileException(action, cow_String(m_Name.View()), error).Throw(sourceName, line);
}

void utl_File::RefuseKind(const char* action, const char* sourceName, int line) const
{
    utl_FileException(action, m_Name, cow_String("Not a regular file")).Throw(sourceName, line);
}

void utl_File::OpenExisting(const cow_String& name, int flags)
{
    // Not blocking: a FIFO without a writer must be refused, not waited for.
    m_Descriptor = ::open(name.CString(), flags | O_CLOEXEC | O_NONBLOCK);
    if (m_Descriptor < 0)
    {
        const int error = errno;
        if (error == ENOENT || error == ENOTDIR)
            utl_FileExceptionNoFile("open", name, error).Throw(__FILE__, __LINE__);
        Refuse("open", error);
    }
    RefuseUnlessRegular("open");
}

void utl_File::RefuseUnlessRegular(const char* action)
{
    struct statx status
    {
    };
    const bool known = LookAt(m_Descriptor, STATX_TYPE | STATX_INO, status);
    if (known && S_ISREG(status.stx_mode))
    {
        m_Identity = {makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino};
        return;
    }
    const int error = !known ? errno : S_ISDIR(status.stx_mode) ? EISDIR : 0;
    ::close(m_Descriptor);
    m_Descriptor = -1;
    if (error != 0) Refuse(action, error);
    RefuseKind(action);
}

void utl_File::OpenFresh(const cow_String& name)
{
    struct stat status
    {
    };
    if (::stat(name.CString(), &status) != 0)
    {
        m_Descriptor = ::open(name.CString(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
        if (m_Descriptor < 0) Refuse("create", errno);
        return RefuseUnlessRegular("create");
    }
    if (S_ISDIR(status.st_mode)) Refuse("create", EISDIR);
    if (!S_ISREG(status.st_mode)) RefuseKind("create");
    if (::access(name.CString(), W_OK) != 0) Refuse("create", errno);

    // The name behind symbolic links takes the fresh file, so that the links stay.
    std::unique_ptr<char, decltype(&std::free)> path(::realpath(name.CString(), nullptr), &std::free);
    if (path != nullptr) OpenFreshBeside(cow_String(path.get()), status.st_mode & 07777U);
    if (m_Descriptor >= 0) return;

    // No file can be made in that directory: the old one is emptied in place.
    m_Descriptor = ::open(name.CString(), O_RDWR | O_TRUNC | O_CLOEXEC | O_NONBLOCK);
    if (m_Descriptor < 0) Refuse("create", errno);
    RefuseUnlessRegular("create");
}

// Makes an empty file next to `path` and renames it over; leaves the descriptor at -1 where that cannot be.
void utl_File::OpenFreshBeside(const cow_String& path, unsigned mode)
{
    for (int attempt = 0; attempt < kMostAttempts; ++attempt)
    {
        const cow_String fresh =
            path + "." + cow_String(static_cast<int>(::getpid())) + "." + cow_String(attempt);
        const int descriptor = ::open(fresh.CString(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (descriptor < 0 && errno == EEXIST) continue;
        if (descriptor < 0) return;
        if (::fchmod(descriptor, mode) == 0 && ::rename(fresh.CString(), path.CString()) == 0)
        {
            m_Descriptor = descriptor;
            return RefuseUnlessRegular("create");
        }
        ::unlink(fresh.CString());
        ::close(descriptor);
        return;
    }
}

void utl_File::Close()
{
    if (m_Descriptor < 0) return;
    struct Closer
    {
        utl_File& file;
        ~Closer()
        {
            ::close(file.m_Descriptor);
            file.m_Descriptor = -1;
            file.m_Mode = Mode::Idle;
            file.m_BlockCount = 0;
            file.m_Pages.reset();
        }
    } closer{*this};
    Flush();
}

void utl_File::Seek(const utl_FileOffset& position)
{
    if (position.Value() < 0) Refuse("seek in", EINVAL);
    if (position.Value() == m_Position) return;
    StepAside(position.Value());
}

// Buffered readers above re-read what they could not use at the end of their block: such a small step back is still
// reading in sequence. Any other step drops the block, so that nobody reads there what was true long ago.
void utl_File::StepAside(std::int64_t position)
{
    const bool rereads = m_Mode == Mode::Ahead && position > m_LastStart && position <= m_Position;
    if (m_Mode == Mode::Gathering) Drain();
    if (m_Mode == Mode::Ahead && !rereads) ForgetAhead();
    m_Position = position;
}

bool utl_File::Follows() const noexcept
{
    return m_Mode == Mode::Gathering && m_Position == m_BlockStart + m_BlockCount;
}

bool utl_File::IsSequential() const noexcept { return m_Position > m_LastStart && m_Position <= m_LastEnd; }

char* utl_File::Block()
{
    if (m_Block == nullptr) m_Block = std::make_unique_for_overwrite<char[]>(kBlockBytes);
    return m_Block.get();
}

int utl_File::Read(char* buffer, int count)
{
    if (count <= 0) return 0;
    if (m_Mode == Mode::Gathering) Drain();
    const std::int64_t start = m_Position;
    int done = TakeFromBlock(buffer, count);
    m_RunBytes += done;
    if (done < count) done += ReadRest(start, buffer, count, done);
    m_LastStart = start;
    m_LastEnd = m_Position;
    return done;
}

// What the block did not hold. A read that fails has not moved, also when its beginning was in the block: those above
// keep the position too, and would read on from another place than this.
int utl_File::ReadRest(std::int64_t start, char* buffer, int count, int done)
{
    const bool sequential = done > 0 || IsSequential();
    m_RunBytes = sequential ? m_RunBytes + count - done : 0;
    try
    {
        if (m_Pages != nullptr && TakeFromPages(buffer + done, count - done)) return count - done;
        if (!sequential && WantsPages(count)) return ReadByPages(buffer, count);
        return ReadPast(buffer + done, count - done);
    }
    catch (...)
    {
        m_Position = start;
        throw;
    }
}

// Reads what no page holds, ahead where that pays.
int utl_File::ReadPast(char* buffer, int count)
{
    if (m_ReadsAhead && m_RunBytes >= kRunBeforeAhead && count < kLeastAhead)
    {
        ReadAhead();
        return TakeFromBlock(buffer, count);
    }
    ForgetAhead();
    WriteOutBefore(m_Position, count);
    const int moved = ReadThrough(buffer, count, m_Position);
    m_Position += moved;
    return moved;
}

int utl_File::TakeFromBlock(char* buffer, int count) noexcept
{
    const std::int64_t place = m_Position - m_BlockStart;
    if (m_Mode != Mode::Ahead || place < 0 || place >= m_BlockCount) return 0;
    const int taken = std::min(count, m_BlockCount - static_cast<int>(place));
    std::memcpy(buffer, m_Block.get() + place, static_cast<std::size_t>(taken));
    m_Position += taken;
    return taken;
}

// The window grows with the run: 64 KiB at first, four times what came in sequence, at most the block.
void utl_File::ReadAhead()
{
    const std::int64_t window =
        std::clamp(m_RunBytes * 4, kLeastAhead, static_cast<std::int64_t>(kBlockBytes));
    ForgetAhead();
    WriteOutBefore(m_Position, window);
    m_BlockCount = ReadThrough(Block(), static_cast<int>(window), m_Position);
    m_BlockStart = m_Position;
    m_Mode = Mode::Ahead;
}

void utl_File::ForgetAhead() noexcept
{
    if (m_Mode != Mode::Ahead) return;
    m_Mode = Mode::Idle;
    m_BlockCount = 0;
}

void utl_File::ForgetPages() noexcept
{
    m_Jumps = 0;
    if (m_Pages != nullptr) m_Pages->Forget();
}

void utl_File::Forget() noexcept
{
    ForgetAhead();
    ForgetPages();
}

int utl_File::ReadThrough(char* buffer, int count, std::int64_t position) const
{
    int done = 0;
    while (done < count)
    {
        const ssize_t moved = utl_System().read(m_Descriptor, buffer + done,
                                                static_cast<std::size_t>(count - done), position + done);
        if (moved < 0 && errno == EINTR) continue;
        if (moved < 0) Refuse("read", errno);
        if (moved == 0) break;
        done += static_cast<int>(moved);
    }
    return done;
}

int utl_File::Write(const char* buffer, int count)
{
    if (count <= 0) return 0;
    if (!IsOpen()) Refuse("write", EBADF); // gathered bytes without a file would end up in the next one
    ForgetAhead();
    m_LastEnd = -1; // reading on behind a write is no run: what it read ahead the next write would drop
    if (m_Position > INT64_MAX - count) Refuse("write", EFBIG);
    if (m_Pages != nullptr)
    {
        if (OverwritePages(buffer, count)) return count;
        if (LoadsPageFor(count) && OverwritePages(buffer, count)) return count;
        LetGoOfPages(m_Position, count);
    }
    const bool follows = Follows();
    if (!follows || count > kBlockBytes - m_BlockCount) Drain();
    if (count >= kBlockBytes)
    {
        std::int64_t written = 0;
        WriteThrough(buffer, count, m_Position, written);
    }
    else
    {
        char* block = Block();
        if (m_Mode == Mode::Idle)
        {
            m_Mode = Mode::Gathering;
            m_BlockStart = m_Position;
            m_BlockCount = 0;
        }
        std::memcpy(block + m_BlockCount, buffer, static_cast<std::size_t>(count));
        m_BlockCount += count;
    }
    m_Position += count;
    return count;
}

void utl_File::WriteThrough(const char* buffer, std::int64_t count, std::int64_t position,
                            std::int64_t& written) const
{
    while (written < count)
    {
        const ssize_t moved = utl_System().write(
            m_Descriptor, buffer + written, static_cast<std::size_t>(count - written), position + written);
        if (moved < 0 && errno == EINTR) continue;
        if (moved < 0) Refuse("write", errno);
        // A regular file that takes nothing and gives no reason would keep this loop for ever.
        if (moved == 0) Refuse("write", ENOSPC);
        written += moved;
    }
}

int utl_File::ReadAt(char* buffer, int count, std::int64_t position) const
{
    if (position < 0) Refuse("read", EINVAL);
    return count > 0 ? ReadThrough(buffer, count, position) : 0;
}

void utl_File::WriteAt(const char* buffer, int count, std::int64_t position) const
{
    if (position < 0) Refuse("write", EINVAL);
    if (position > INT64_MAX - std::max(count, 0)) Refuse("write", EFBIG);
    std::int64_t written = 0;
    WriteThrough(buffer, count, position, written);
}

void utl_File::Drain()
{
    if (m_Mode != Mode::Gathering) return;
    std::int64_t written = 0;
    try
    {
        WriteThrough(m_Block.get(), m_BlockCount, m_BlockStart, written);
    }
    catch (const utl_FileException&)
    {
        // What the system did not take stays gathered for the next try.
        m_BlockCount -= static_cast<int>(written);
        m_BlockStart += written;
        std::memmove(m_Block.get(), m_Block.get() + written, static_cast<std::size_t>(m_BlockCount));
        throw;
    }
    m_Mode = Mode::Idle;
    m_BlockCount = 0;
}

void utl_File::Flush()
{
    Drain();
    WriteOutPages();
}

utl_FileOffset utl_File::FileSize() const
{
    struct statx status
    {
    };
    if (!LookAt(m_Descriptor, STATX_SIZE, status)) Refuse("look at", errno);
    const std::int64_t gatheredEnd = m_Mode == Mode::Gathering ? m_BlockStart + m_BlockCount : 0;
    return std::max(static_cast<std::int64_t>(status.stx_size), gatheredEnd);
}

std::int64_t utl_File::LastChange() const
{
    struct stat status
    {
    };
    if (::fstat(m_Descriptor, &status) != 0) Refuse("look at", errno);
    return std::int64_t{status.st_ctim.tv_sec} * 1000000000 + status.st_ctim.tv_nsec;
}

void utl_File::Expect(const utl_FileOffset& position, int count) const noexcept
{
    ::posix_fadvise(m_Descriptor, position.Value(), count, POSIX_FADV_WILLNEED);
}

void utl_File::Extend(const utl_FileOffset& size)
{
    Flush();
    Forget();
    const std::int64_t old = FileSize().Value();
    const std::int64_t wanted = size.Value();
    if (wanted == old) return;
    if (wanted > old)
    {
        int result = 0;
        do result = utl_System().allocate(m_Descriptor, old, wanted - old);
        while (result != 0 && errno == EINTR);
        if (result == 0) return;
        const int error = errno;
        if (error != EOPNOTSUPP && error != ENOSYS)
        {
            // Some file systems have grown the file as far as their room went.
            static_cast<void>(utl_System().truncate(m_Descriptor, old));
            Refuse("extend", error);
        }
        // File systems without reservation: the size alone. A full disk then shows in the write.
    }
    int result = 0;
    do result = utl_System().truncate(m_Descriptor, wanted);
    while (result != 0 && errno == EINTR);
    if (result != 0) Refuse("extend", errno);
}

// ---- Pages ----

bool utl_File::WantsPages(int count) noexcept
{
    if (!m_KeepsPages || count > kMostByPages) return false;
    return m_Jumps >= kJumpsBeforePages || ++m_Jumps >= kJumpsBeforePages;
}

// All of a read or none of it. A page that is short because the file ended there when it was loaded is looked at again.
bool utl_File::TakeFromPages(char* buffer, int count) noexcept
{
    if (count > 2 * kPageBytes) return false; // first: the end of the longest read is no number
    const int place = PlaceInPage(m_Position);
    const utl_PageCache::Page* page = m_Pages->Find(PageOf(m_Position));
    if (page == nullptr) return false;
    if (place + count <= page->valid)
    {
        std::memcpy(buffer, page->bytes + place, static_cast<std::size_t>(count));
        m_Position += count;
        return true;
    }
    const utl_PageCache::Page* next = m_Pages->Find(PageOf(m_Position) + 1);
    const int fromNext = place + count - kPageBytes;
    if (page->valid < kPageBytes || next == nullptr || fromNext > next->valid) return false;
    std::memcpy(buffer, page->bytes + place, static_cast<std::size_t>(count - fromNext));
    std::memcpy(buffer + count - fromNext, next->bytes, static_cast<std::size_t>(fromNext));
    m_Position += count;
    return true;
}

int utl_File::ReadByPages(char* buffer, int count)
{
    if (m_Pages == nullptr) m_Pages = std::make_unique<utl_PageCache>();
    ForgetAhead();
    int done = 0;
    while (done < count)
    {
        const std::int64_t position = m_Position + done;
        const int wanted = std::min(count - done, kPageBytes - PlaceInPage(position));
        const int moved = ReadInPage(buffer + done, wanted, position);
        done += moved;
        if (moved < wanted) break;
    }
    m_Position += done;
    return done;
}

int utl_File::ReadInPage(char* buffer, int count, std::int64_t position)
{
    const std::int64_t number = PageOf(position);
    const int place = PlaceInPage(position);
    utl_PageCache::Page* page = m_Pages->Find(number);
    if (page != nullptr && place + count > page->valid)
    {
        LetGoOfPages(position, count);
        page = nullptr;
    }
    if (page == nullptr && m_Pages->Touch(number)) page = LoadPage(number);
    if (page == nullptr || place + count > page->valid) return ReadThrough(buffer, count, position);
    std::memcpy(buffer, page->bytes + place, static_cast<std::size_t>(count));
    return count;
}

// Null when there is no memory for it.
utl_PageCache::Page* utl_File::LoadPage(std::int64_t number)
{
    utl_PageCache::Page& page = m_Pages->PlaceOf(number);
    if (page.IsDirty())
        WriteOutPages(); // all: in a file that is larger than the pages the next will have to go too
    if (!m_Pages->Provide(page)) return nullptr;
    m_Pages->Drop(page);
    m_Pages->Keep(page, number, ReadThrough(page.bytes, kPageBytes, number * kPageBytes));
    return &page;
}

// Takes a write that lies in kept pages as a whole.
bool utl_File::OverwritePages(const char* buffer, int count)
{
    const int place = PlaceInPage(m_Position);
    if (count > kPageBytes) return false;
    utl_PageCache::Page* page = m_Pages->Find(PageOf(m_Position));
    if (page == nullptr) return false;
    const int fromNext = std::max(place + count - kPageBytes, 0);
    if (place + count - fromNext > page->valid) return false;
    if (fromNext > 0)
    {
        utl_PageCache::Page* next = m_Pages->Find(PageOf(m_Position) + 1);
        if (next == nullptr || fromNext > next->valid) return false;
        m_Pages->Overwrite(*next, 0, buffer + count - fromNext, fromNext);
    }
    m_Pages->Overwrite(*page, place, buffer, count - fromNext);
    m_Position += count;
    return true;
}

// A write here and there into a page that was wanted before: on ext4 a small write costs 4 us, the load of its page 1.6,
// and the row of a table that is written was read before.
bool utl_File::LoadsPageFor(int count)
{
    const std::int64_t number = PageOf(m_Position);
    const bool isInOne = count <= kMostByPages && PageOf(m_Position + count - 1) == number;
    if (!isInOne || Follows()) return false;
    Drain(); // or the page would not have what is gathered
    return m_Pages->Touch(number) && LoadPage(number) != nullptr;
}

// What goes past the pages must not find any of its bytes in them.
void utl_File::LetGoOfPages(std::int64_t start, std::int64_t count)
{
    for (std::int64_t number = PageOf(start); number <= PageOf(start + count - 1); ++number)
    {
        utl_PageCache::Page* page = m_Pages->Find(number);
        if (page == nullptr) continue;
        if (page->IsDirty()) WriteOut(*page);
        m_Pages->Drop(*page);
    }
}

// A read past the pages finds in the file what was written to them.
void utl_File::WriteOutBefore(std::int64_t start, std::int64_t count)
{
    if (m_Pages == nullptr || !m_Pages->HasDirty()) return;
    const std::int64_t end = start + std::min(count, INT64_MAX - start);
    for (std::int64_t number = PageOf(start); number <= PageOf(end - 1); ++number)
    {
        const utl_PageCache::Page* page = m_Pages->Find(number);
        if (page != nullptr && page->IsDirty()) return WriteOutPages();
    }
}

void utl_File::WriteOut(utl_PageCache::Page& page)
{
    std::int64_t written = 0;
    WriteThrough(page.bytes + page.dirtyStart, page.dirtyEnd - page.dirtyStart,
                 page.number * kPageBytes + page.dirtyStart, written);
    m_Pages->SetClean(page);
}

// Pages that lie side by side go out in one call: after updates all over a table that is 1.3 us a page instead of 9 us.
void utl_File::WriteOutPages()
{
    if (m_Pages == nullptr || !m_Pages->HasDirty()) return;
    Drain();
    ForgetAhead(); // its block is needed
    const std::vector<utl_PageCache::Page*> pages = m_Pages->DirtyPages();
    for (std::size_t first = 0; first < pages.size();)
    {
        std::size_t last = first;
        while (last + 1 < pages.size() && pages[last]->valid == kPageBytes &&
               pages[last + 1]->number == pages[last]->number + 1 &&
               last + 1 - first < kBlockBytes / kPageBytes)
            ++last;
        WriteOutRun(pages, first, last);
        first = last + 1;
    }
}

// From the first changed byte to the last; what lies between is what the file has there. A run that the system refuses
// is dirty as a whole until the next try.
void utl_File::WriteOutRun(const std::vector<utl_PageCache::Page*>& pages, std::size_t first,
                           std::size_t last)
{
    if (first == last) return WriteOut(*pages[first]);
    char* block = Block();
    for (std::size_t i = first; i <= last; ++i)
        std::memcpy(block + (i - first) * kPageBytes, pages[i]->bytes, kPageBytes);
    const std::int64_t count = static_cast<std::int64_t>(last - first) * kPageBytes + pages[last]->dirtyEnd -
                               pages[first]->dirtyStart;
    std::int64_t written = 0;
    WriteThrough(block + pages[first]->dirtyStart, count,
                 pages[first]->number * kPageBytes + pages[first]->dirtyStart, written);
    for (std::size_t i = first; i <= last; ++i) m_Pages->SetClean(*pages[i]);
}
