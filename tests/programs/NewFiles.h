#pragma once

// What the tests of the commands that write a new file share: a look at what a folder holds, files that take longer to
// copy than any test waits, and a disk that is full.

#include "SampleDatabase.h"
#include "ToolRunner.h"
#include "rfm_ObjectFormat.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

/// The kinds of file that a database can lie in: each test of a copy goes from each to each.
inline const std::vector<std::string> kKinds{"plain", "compressed", "hdf5"};

/// Names in a folder, sorted; the ones that begin with a dot too.
inline std::vector<std::string> NamesIn(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

/// Waits for what happens in a folder.
class FolderWatch
{
public:
    explicit FolderWatch(const std::string& folder) : m_Descriptor(::inotify_init1(IN_CLOEXEC))
    {
        if (::inotify_add_watch(m_Descriptor, folder.c_str(), IN_MODIFY) < 0)
            throw std::runtime_error("inotify_add_watch");
    }
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;
    ~FolderWatch() { ::close(m_Descriptor); }

    /// Returns once something was written into a file of the folder.
    void WaitForAWrite() const
    {
        pollfd end{m_Descriptor, POLLIN, 0};
        if (::poll(&end, 1, 60000) != 1) throw std::runtime_error("nothing was written");
        alignas(inotify_event) char events[4096];
        if (::read(m_Descriptor, events, sizeof events) <= 0) throw std::runtime_error("read of inotify");
    }

private:
    int m_Descriptor;
};

constexpr std::int64_t kEndlessBytes = std::int64_t{1} << 36;

/// Puts the space of a handle behind the end of the file and makes it 64 GiB large, all hole, without taking room on the
/// disk.
inline void MakeEndlessSpace(const std::string& path, int handle)
{
    const double end = static_cast<double>(std::filesystem::file_size(path));
    Overwrite<double>(path, EntryPlace(handle), static_cast<double>(kEndlessBytes));
    Overwrite<double>(path, EntryPlace(handle) + 8, static_cast<double>(kEndlessBytes));
    Overwrite<double>(path, EntryPlace(handle) + 16, end);
    Overwrite<double>(path, 504, 0); // the stamp allows any size
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(end) + kEndlessBytes);
}

/// Makes a sound sample whose plain space 9 is that large.
inline void MakeEndless(const std::string& path)
{
    MakeSample(path);
    MakeEndlessSpace(path, 9);
}

/// The same of its array 6.
inline void MakeEndlessArray(const std::string& path)
{
    MakeSample(path);
    const auto head = ReadFile(path).substr(static_cast<std::size_t>(ExtentOfEntry(path, 6)), 16);
    MakeEndlessSpace(path, 6);
    std::array<char, 16> bytes{};
    head.copy(bytes.data(), bytes.size());
    Overwrite(path, ExtentOfEntry(path, 6), bytes);
}

/// Makes a compressed file whose only object, array 4 of `kManyNumbers` integers, can't be read in its midst. The first
/// of them that lies there.
constexpr int kManyNumbers = 131072;
inline int MakeDamagedNumbers(const std::string& path)
{
    const std::string plain = path + ".plain";
    {
        rfm_Database database = CreateDatabase(plain);
        auto numbers = database.ArrayInt(1, 1 << 16, 0);
        std::vector<int> values(kManyNumbers);
        std::uint32_t state = 1; // what doesn't compress
        for (int& value : values) value = static_cast<int>(state = state * 1664525U + 1013904223U);
        numbers.Write(values.data(), kManyNumbers);
        numbers.Flush();
        database.Close();
    }
    if (Tool::Run({"convert", plain, path, "--to", "compressed", "-f"}).code != 0)
        throw std::runtime_error("convert");
    const std::int64_t firstByte = ExtentOfEntry(plain, 4) + rfm_ArrayFirstRowOffset;
    std::filesystem::remove(plain);
    const std::int64_t segmentBytes = NumberAt<std::int32_t>(path, 28);
    const std::int64_t segment = NumberAt<std::int32_t>(path, 32) / 2;
    const std::int64_t stream = std::int64_t{4096} * NumberAt<std::uint32_t>(path, 40 + 4 * segment);
    Overwrite<std::uint64_t>(path, stream + 4, 0);
    return static_cast<int>((segment * segmentBytes - firstByte) / 4);
}

/// While it lives, no file of this process and of those that it starts gets larger than `bytes`.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        ::getrlimit(RLIMIT_FSIZE, &m_Before);
        const rlimit tight{bytes, m_Before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &tight);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &m_Before); }

private:
    rlimit m_Before{};
};
