// Every number of every golden file is set to each edge value, files are cut off, bytes are thrown about. Whatever a
// file holds, reading and appending end well or with a nex_Exception: no crash, no hang, memory in proportion.
//
// The cases of a file run in a forked child, which tells the number of the case that it is at through shared memory.
// Where it dies the case is a failure, and another child goes on behind it.
#include "EnvironmentVariable.h"
#include "FileKind.h"
#include "RandomSeed.h"
#include "TestFolder.h"
#include "rfm_GoldenFiles.h"
#include "walk_database.h"

#include "omi_Swapper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <limits>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
// Of AddressSanitizer's run-time; its header does not come with every compiler.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));
#endif

namespace
{
constexpr std::size_t kHeaderBytes = 1024;
constexpr std::size_t kFirstEntry = 1024;
constexpr std::size_t kEntryBytes = 28;
constexpr std::size_t kDataStart = 15360;

// A file of 20 KiB may not cost more than this at once, nor grow the process by more than that, nor become larger.
constexpr std::size_t kMostBytesAtOnce = 2U << 20;
constexpr rlim_t kMostProcessGrowth = 64U << 20;
constexpr rlim_t kMostFileBytes = 64U << 20;
constexpr long kMostSeconds = 2; // of the processor, for one case
constexpr std::size_t kMostFailures = 10;

struct Damage
{
    std::string what;
    std::string bytes;
};

// What child and parent share.
struct Progress
{
    int current;   // the case that the child is at
    char how[512]; // what was thrown, if something was
};

#ifdef __SANITIZE_ADDRESS__
void RefuseLargeBlock(const volatile void*, std::size_t size)
{
    if (size > kMostBytesAtOnce) std::abort();
}
void IgnoreRelease(const volatile void*) {}

void LimitMemory() { __sanitizer_install_malloc_and_free_hooks(RefuseLargeBlock, IgnoreRelease); }
#else
rlim_t AddressSpaceInUse()
{
    std::ifstream file("/proc/self/statm");
    rlim_t pages = 0;
    if (!(file >> pages)) std::abort();
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

void LimitMemory()
{
    const rlim_t most = AddressSpaceInUse() + kMostProcessGrowth;
    const rlimit limit{most, most};
    if (setrlimit(RLIMIT_AS, &limit) != 0) std::abort();
}
#endif

// A processor clock, not one on the wall: a busy machine is no hang.
void StartClock()
{
    const itimerval clock{{0, 0}, {kMostSeconds, 0}};
    if (setitimer(ITIMER_PROF, &clock, nullptr) != 0) std::abort();
}

void LimitFiles()
{
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{kMostFileBytes, kMostFileBytes};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) std::abort();
}

void RunOne(const std::string& bytes)
{
    const auto* start = reinterpret_cast<const std::uint8_t*>(bytes.data());
    fuzz_WalkDatabase(start, bytes.size());
    fuzz_AppendToDatabase(start, bytes.size());
}

using Run = std::function<void(const std::string& bytes)>;

[[noreturn]] void RunFrom(const std::vector<Damage>& cases, int first, const Run& run, Progress& progress,
                          int report)
{
    if (dup2(report, STDERR_FILENO) < 0) std::abort();
    LimitMemory();
    LimitFiles();
    for (progress.current = first; progress.current < static_cast<int>(cases.size()); ++progress.current)
    {
        StartClock();
        if (ftruncate(report, 0) != 0) std::abort();
        try
        {
            run(cases[static_cast<std::size_t>(progress.current)].bytes);
        }
        catch (const std::exception& failure)
        {
            std::snprintf(progress.how, sizeof progress.how, "%s", failure.what());
            _exit(1);
        }
    }
    _exit(0);
}

class SharedProgress
{
public:
    SharedProgress()
        : m_Shared(static_cast<Progress*>(
              mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        if (m_Shared == MAP_FAILED) throw std::bad_alloc();
    }
    SharedProgress(const SharedProgress&) = delete;
    SharedProgress& operator=(const SharedProgress&) = delete;
    ~SharedProgress() { munmap(m_Shared, sizeof(Progress)); }

    Progress& Get() const { return *m_Shared; }

private:
    Progress* m_Shared;
};

// What the child has on standard error: much that the library tells there, and a sanitizer's report.
class Report
{
public:
    Report() : m_Descriptor(memfd_create("report", MFD_CLOEXEC))
    {
        // To append: each case truncates what the one before it said.
        if (m_Descriptor < 0 || fcntl(m_Descriptor, F_SETFL, O_APPEND) != 0) throw std::bad_alloc();
    }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;
    ~Report() { close(m_Descriptor); }

    int Descriptor() const { return m_Descriptor; }
    std::string Text() const
    {
        char text[4000];
        const ssize_t read = pread(m_Descriptor, text, sizeof text, 0);
        return {text, static_cast<std::size_t>(std::max<ssize_t>(read, 0))};
    }

private:
    int m_Descriptor;
};

std::string HowItEnded(int status, const Progress& progress, const Report& report)
{
    const std::string end = WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                                : "exit code " + std::to_string(WEXITSTATUS(status));
    return end + " " + progress.how + "\n" + report.Text();
}

// One text for each case that did not end well; no more cases are tried after the tenth.
std::vector<std::string> FailuresOf(const std::vector<Damage>& cases, const Run& run)
{
    const SharedProgress progress;
    const Report report;
    std::vector<std::string> failures;
    for (int first = 0; first < static_cast<int>(cases.size()) && failures.size() < kMostFailures;)
    {
        progress.Get() = {};
        const pid_t child = fork();
        if (child == 0) RunFrom(cases, first, run, progress.Get(), report.Descriptor());
        int status = -1;
        if (child < 0 || waitpid(child, &status, 0) != child) throw std::runtime_error("no child");
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) break;
        const int at = progress.Get().current;
        failures.push_back(cases.at(static_cast<std::size_t>(at)).what + ": " +
                           HowItEnded(status, progress.Get(), report));
        first = at + 1;
    }
    return failures;
}

void ExpectAllSurvived(const std::vector<Damage>& cases)
{
    for (const std::string& failure : FailuresOf(cases, RunOne)) ADD_FAILURE() << failure;
    std::printf("%zu cases\n", cases.size());
}

// ---- The damage ----

template <class T> std::string With(std::string bytes, std::size_t offset, T value)
{
    omi_Store(bytes.data() + offset, value, false);
    return bytes;
}

std::uint32_t WordAt(const std::string& bytes, std::size_t offset)
{
    return omi_Load<std::uint32_t>(bytes.data() + offset, false);
}

class DamageList
{
public:
    DamageList(const char* name, const std::string& sound) : m_Name(name), m_Sound(sound) {}

    void Word(std::size_t offset)
    {
        const std::uint32_t old = WordAt(m_Sound, offset);
        for (const std::uint32_t value : {0U, 1U, 0xFFFFFFFFU, 0x7FFFFFFFU, 0x80000000U, old + 1})
            if (value != old) Add(offset, value);
    }
    void Double(std::size_t offset)
    {
        constexpr double kExact = 9007199254740992.0; // 2^53
        const double old = omi_Load<double>(m_Sound.data() + offset, false);
        for (const double value : {0.0, -1.0, std::nan(""), std::numeric_limits<double>::infinity(), kExact,
                                   kExact + 2, 1e300, old + 1})
            if (value != old) Add(offset, value);
    }
    // In the middle of a run, or of the fields of a layout, which are 12 bytes each, one place stands for all.
    bool IsAsBefore(std::size_t offset) const { return Repeats(offset, 4) || Repeats(offset, 12); }
    std::vector<Damage>& Cases() { return m_Cases; }

private:
    bool Repeats(std::size_t offset, std::size_t step) const
    {
        const std::uint32_t word = WordAt(m_Sound, offset);
        return WordAt(m_Sound, offset - step) == word && WordAt(m_Sound, offset - 2 * step) == word;
    }
    template <class T> void Add(std::size_t offset, T value)
    {
        m_Cases.push_back({m_Name + " with " + std::to_string(value) + " at " + std::to_string(offset),
                           With(m_Sound, offset, value)});
    }

    std::string m_Name;
    const std::string& m_Sound;
    std::vector<Damage> m_Cases;
};

// The entries in use and one more, so that a free one is damaged too.
std::size_t EndOfEntries(const std::string& sound)
{
    std::size_t entry = kFirstEntry + kEntryBytes;
    while (sound.compare(entry, kEntryBytes, std::string(kEntryBytes, '\0')) != 0) entry += kEntryBytes;
    return entry + kEntryBytes;
}

// The bytes of a file of that kind whose database has these.
std::string InKind(const char* kind, const std::string& bytes)
{
    const TestFolder folder;
    const cow_String plain = folder.Path("plain");
    const cow_String other = folder.Path("other");
    PutBytes(plain, bytes);
    {
        const EnvironmentVariable wanted("RFM_TEST_FILE_KIND", kind);
        rfm_File file = NewFileOfKind(other);
        file.Copy(rfm_File::Open(plain, utl_FileAccessRead));
    }
    return BytesOf(other);
}

class EveryDamagedFile : public testing::TestWithParam<GoldenFile>
{
protected:
    const std::string m_Sound = BytesOf(cow_String(RFM_TEST_DATA "/") + GetParam().name);
    DamageList m_Damage{GetParam().name, m_Sound};
};

INSTANTIATE_TEST_SUITE_P(DamagedFiles, EveryDamagedFile, testing::ValuesIn(kGoldenFiles),
                         [](const auto& file)
                         {
                             const std::string name = file.param.name;
                             return name.substr(0, name.find('.'));
                         });
} // namespace

TEST_P(EveryDamagedFile, IsSoundWithoutDamage)
{
    ASSERT_GT(m_Sound.size(), kDataStart);
    ExpectAllSurvived({{GetParam().name, m_Sound}});
}

TEST_P(EveryDamagedFile, SurvivesEveryNumberOfItsHeader)
{
    for (const std::size_t offset : {0, 4, 8, 12, 16, 492, 496, 500, 504, 508, 512, 516, 520})
        m_Damage.Word(offset);
    m_Damage.Double(504);
    ExpectAllSurvived(m_Damage.Cases());
}

TEST_P(EveryDamagedFile, SurvivesEveryNumberOfItsLinkageEntries)
{
    const std::size_t end = EndOfEntries(m_Sound);
    for (std::size_t entry = kFirstEntry; entry < end; entry += kEntryBytes)
    {
        for (std::size_t word = 0; word < kEntryBytes; word += 4) m_Damage.Word(entry + word);
        for (std::size_t number = 0; number < 24; number += 8) m_Damage.Double(entry + number);
    }
    ExpectAllSurvived(m_Damage.Cases());
}

// Fields of eight bytes lie at any multiple of four, so each place is taken for one.
TEST_P(EveryDamagedFile, SurvivesEveryNumberOfItsData)
{
    for (std::size_t offset = kDataStart; offset + 4 <= m_Sound.size(); offset += 4)
    {
        if (m_Damage.IsAsBefore(offset)) continue;
        m_Damage.Word(offset);
        if (offset + 8 <= m_Sound.size()) m_Damage.Double(offset);
    }
    ExpectAllSurvived(m_Damage.Cases());
}

// What is damaged in the database is damaged in whatever keeps its bytes.
TEST_P(EveryDamagedFile, SurvivesInsideEveryOtherKindOfFile)
{
    for (const std::size_t offset : {0, 4, 8, 492, 496, 500, 508, 512, 516, 520}) m_Damage.Word(offset);
    m_Damage.Double(504);
    for (std::size_t entry = kFirstEntry; entry < EndOfEntries(m_Sound); entry += kEntryBytes)
    {
        m_Damage.Word(entry + 24);
        for (std::size_t number = 0; number < 24; number += 8) m_Damage.Double(entry + number);
    }
    for (const char* kind : {"compressed", "hdf5"})
    {
        std::vector<Damage> cases = {{std::string("sound ") + kind, InKind(kind, m_Sound)}};
        EXPECT_NE(cases.front().bytes.substr(0, 4), m_Sound.substr(0, 4));
        for (const Damage& damage : m_Damage.Cases())
            cases.push_back({damage.what + " in a file that is " + kind, InKind(kind, damage.bytes)});
        ExpectAllSurvived(cases);
    }
}

// With the stamp of the whole file, which refuses it at once, and with none, which lets it in.
TEST_P(EveryDamagedFile, SurvivesBeingCutOffAnywhere)
{
    std::vector<std::size_t> sizes = {0, 1, 4, 8, 12, 495, 496, 500, 504, 508, 516, 520, kHeaderBytes + 1};
    for (std::size_t size = 512; size < m_Sound.size(); size += 512) sizes.push_back(size);
    for (std::size_t size = kFirstEntry; size <= EndOfEntries(m_Sound); size += kEntryBytes)
        sizes.push_back(size);
    for (std::size_t size = kDataStart; size < m_Sound.size(); size += 4)
        if (!m_Damage.IsAsBefore(size)) sizes.push_back(size);
    sizes.push_back(m_Sound.size() - 1);
    const std::string unstamped = With(m_Sound, 504, 0.0);
    std::vector<Damage> cases;
    for (const std::size_t size : sizes)
        for (const std::string* whole : {&m_Sound, &unstamped})
            cases.push_back(
                {GetParam().name + (" cut off at " + std::to_string(size)), whole->substr(0, size)});
    ExpectAllSurvived(cases);
}

namespace
{
// Damage where something lies: the header, the first entries, the data.
std::size_t RandomPlace(std::mt19937& random, std::size_t size)
{
    switch (random() % 4)
    {
    case 0: return random() % 524;
    case 1: return kFirstEntry + random() % (12 * kEntryBytes);
    default: return kDataStart + random() % (size - kDataStart);
    }
}

void DamageAtRandom(std::mt19937& random, std::string& bytes)
{
    const std::size_t start = RandomPlace(random, bytes.size());
    const std::size_t count = std::min<std::size_t>(1 + random() % 8, bytes.size() - start);
    const bool sameByte = random() % 2 == 0;
    const char byte = static_cast<char>(random());
    for (std::size_t i = 0; i < count; ++i) bytes[start + i] = sameByte ? byte : static_cast<char>(random());
}
} // namespace

TEST(DamagedFiles, SurviveRandomDamageInManyPlaces)
{
    constexpr int kCases = 5000;
    std::mt19937 random(RandomSeed());
    std::vector<std::string> sound;
    for (const GoldenFile& file : kGoldenFiles)
        sound.push_back(BytesOf(cow_String(RFM_TEST_DATA "/") + file.name));
    std::vector<Damage> cases;
    for (int i = 0; i < kCases; ++i)
    {
        const std::size_t file = random() % sound.size();
        Damage damage{kGoldenFiles[file].name + (" with random damage number " + std::to_string(i)),
                      sound[file]};
        for (auto count = 1 + random() % 6; count > 0; --count) DamageAtRandom(random, damage.bytes);
        cases.push_back(std::move(damage));
    }
    ExpectAllSurvived(cases);
}

namespace
{
void StayBusy()
{
    for (volatile bool busy = true; busy;)
    {
    }
}

void TakeMuchMemory()
{
    const std::vector<char> block(2 * kMostProcessGrowth);
    if (block.back() != 0) std::abort();
}

void Misbehave(const std::string& how)
{
    if (how == "crash") std::abort();
    if (how == "no memory") throw std::bad_alloc();
    if (how == "too much memory") TakeMuchMemory();
    if (how == "hang") StayBusy();
}
} // namespace

TEST(DamagedFiles, ACaseThatEndsBadlyIsToldAndTheOthersGoOn)
{
    const std::vector<std::string> failures = FailuresOf({{"first", ""},
                                                          {"second", "crash"},
                                                          {"third", "no memory"},
                                                          {"fourth", "too much memory"},
                                                          {"fifth", "hang"},
                                                          {"last", ""}},
                                                         Misbehave);
    ASSERT_EQ(failures.size(), 4U);
    EXPECT_TRUE(failures[0].starts_with("second: signal 6")) << failures[0];
    EXPECT_TRUE(failures[1].starts_with("third: exit code 1 std::bad_alloc")) << failures[1];
    EXPECT_TRUE(failures[2].starts_with("fourth: ")) << failures[2];
    EXPECT_TRUE(failures[3].starts_with("fifth: signal 27")) << failures[3];
}
