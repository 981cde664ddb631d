#pragma once

#include "cow_String.h"
#include "utl_FileAccess.h"
#include "utl_FileException.h"
#include "utl_FileOffset.h"
#include "utl_PageCache.h"

#include <cstdint>
#include <memory>
#include <vector>

/// How other processes may share a file; passed through to platforms that know such a thing. Linux does not.
using utl_FileSharing = int;

/// Which file of the machine it is, whatever its name.
struct utl_FileIdentity
{
    std::uint64_t device = 0;
    std::uint64_t number = 0;
    bool operator==(const utl_FileIdentity&) const = default;
};

/// A file of bytes with 64-bit positions. It keeps its own position, so seeking costs nothing, and gathers what moves in
/// sequence in one block of memory:
///
///              Read in sequence                      Write
///   +--------+ ---------------> +--------+ <----------------------+-----------+
///   | ahead  |                  |  idle  |                        | gathering |
///   +--------+ <--------------- +--------+ ---------------------> +-----------+
///                a step aside, Forget               drained: a step aside, a full block, Read,
///                                                   Extend, Flush, Close
///
/// What is small and jumps about may be served by pages instead, which `utl_PageCache` draws: a page is loaded at its
/// second touch, and a write that lies inside kept pages is gathered there. Dirty pages are written out by Extend, Flush
/// and Close, by a read past the pages that would miss them, and all at once when one of them must make room. No byte
/// is ever both in the block that gathers and in a page.
///
/// Without pages, writes reach the system in the order in which they were made. With them that holds between two calls
/// of Flush only as far as everything before a Flush comes before everything behind it. A write that the system refuses
/// stays gathered and is tried again at the next occasion, so nothing is lost by a full disk that gets room again.
/// Throws: utl_FileException with the file's name and the system's words for every refusal; a transfer is never
/// short without a reason: `Read` at the end of the file, `Write` never.
class utl_File
{
public:
    utl_File() = default;
    utl_File(const cow_String& name, utl_FileAccess access, utl_FileSharing sharing);
    utl_File(const utl_File&) = delete;
    utl_File& operator=(const utl_File&) = delete;
    /// Closes; what fails then is one line on standard error, as nobody is left to be told otherwise.
    ~utl_File();

    /// Throws: utl_FileExceptionNoFile when there is no such file. Create puts a fresh, empty file under the name, so that
    /// readers of an older one keep it. Anything but a regular file is refused.
    void Open(const cow_String& name, utl_FileAccess access, utl_FileSharing sharing);
    void Close();
    bool IsOpen() const noexcept { return m_Descriptor >= 0; }

    void Seek(const utl_FileOffset& position);
    int Read(char* buffer, int count);
    int Write(const char* buffer, int count);
    utl_FileOffset FileSize() const;
    /// When anything of the file was changed last, in nanoseconds of the clock by which the system stamps files.
    std::int64_t LastChange() const;
    /// Tells the system that these bytes will be read soon, so that a disk gets to work.
    void Expect(const utl_FileOffset& position, int count) const noexcept;
    /// Tells this file from any other that had or gets its name.
    const utl_FileIdentity& Identity() const noexcept { return m_Identity; }
    /// Sets the size, up or down. Upwards it reserves real blocks, so that a full disk shows here.
    void Extend(const utl_FileOffset& size);
    /// Hands what is gathered to the system.
    void Flush();

    /// Positioned transfers, straight to the system: they neither use nor move the position of the file, nor its block.
    /// Threads: any number at once on one file, as long as nobody uses the operations above meanwhile.
    /// `ReadAt` is short at the end of the file, `WriteAt` never.
    int ReadAt(char* buffer, int count, std::int64_t position) const;
    void WriteAt(const char* buffer, int count, std::int64_t position) const;

    /// Off for whoever reads in large pieces of his own choice; on at the start.
    void SetReadsAhead(bool readsAhead) noexcept { m_ReadsAhead = readsAhead; }
    /// On for whoever reads and overwrites small pieces here and there, and says by Forget when what was read may be old;
    /// off at the start. Reads and writes at random in a table of 1 000 000 rows cost 0.7 us and 2 us in system calls
    /// alone; 200 000 of them touch each page 15 times, of which all but the first two stay in memory.
    void SetKeepsPages(bool keepsPages) noexcept { m_KeepsPages = keepsPages; }
    /// Drops what was read ahead and kept: another process may have written since.
    void Forget() noexcept;
    /// Drops the kept pages alone. What was read ahead goes by itself at the next step aside.
    void ForgetPages() noexcept;

private:
    enum class Mode
    {
        Idle,
        Ahead,
        Gathering
    };

    void OpenExisting(const cow_String& name, int flags);
    void OpenFresh(const cow_String& name);
    void OpenFreshBeside(const cow_String& path, unsigned mode);
    void RefuseUnlessRegular(const char* action);
    [[noreturn]] void Refuse(const char* action, int error, const char* sourceName = __builtin_FILE(),
                             int line = __builtin_LINE()) const;
    [[noreturn]] void RefuseKind(const char* action, const char* sourceName = __builtin_FILE(),
                                 int line = __builtin_LINE()) const;
    void StepAside(std::int64_t position);
    bool Follows() const noexcept;
    bool IsSequential() const noexcept;
    int ReadRest(std::int64_t start, char* buffer, int count, int done);
    int ReadPast(char* buffer, int count);
    void ForgetAhead() noexcept;
    bool WantsPages(int count) noexcept;
    bool TakeFromPages(char* buffer, int count) noexcept;
    int ReadByPages(char* buffer, int count);
    int ReadInPage(char* buffer, int count, std::int64_t position);
    utl_PageCache::Page* LoadPage(std::int64_t number);
    bool LoadsPageFor(int count);
    bool OverwritePages(const char* buffer, int count);
    void LetGoOfPages(std::int64_t start, std::int64_t count);
    void WriteOutBefore(std::int64_t start, std::int64_t count);
    void WriteOut(utl_PageCache::Page& page);
    void WriteOutPages();
    void WriteOutRun(const std::vector<utl_PageCache::Page*>& pages, std::size_t first, std::size_t last);
    int ReadThrough(char* buffer, int count, std::int64_t position) const;
    int TakeFromBlock(char* buffer, int count) noexcept;
    void ReadAhead();
    void Drain();
    void WriteThrough(const char* buffer, std::int64_t count, std::int64_t position,
                      std::int64_t& written) const;
    char* Block();

    int m_Descriptor = -1;
    cow_String m_Name;
    utl_FileIdentity m_Identity;
    std::int64_t m_Position = 0;

    Mode m_Mode = Mode::Idle;
    bool m_ReadsAhead = true;
    std::unique_ptr<char[]> m_Block;
    std::int64_t m_BlockStart = 0; // position in the file of the block's first byte
    int m_BlockCount = 0;          // bytes of the block that are in use

    // The last read from the system, and how many bytes came in sequence up to its end.
    std::int64_t m_LastStart = 0;
    std::int64_t m_LastEnd = -1;
    std::int64_t m_RunBytes = 0;

    bool m_KeepsPages = false;
    int m_Jumps = 0; // small reads that were not in sequence, since the last Forget
    std::unique_ptr<utl_PageCache> m_Pages;
};
