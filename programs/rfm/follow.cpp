#include "follow.h"

#include "DatabaseFile.h"
#include "Text.h"
#include "rfm_LinkageFormat.h"
#include "rfm_ObjectFormat.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <optional>
#include <thread>

namespace rfm_tool
{
namespace
{
using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kPollInterval{20};

// Which file has the name now.
struct Identity
{
    dev_t device = 0;
    ino_t number = 0;
    bool exists = false;
    bool operator==(const Identity&) const = default;
};

Identity IdentityOf(const std::string& path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) return {};
    return {status.st_dev, status.st_ino, true};
}

// Seconds from the last write of the file to now: what a flush needed to be seen.
double LagOf(const std::string& path)
{
    struct stat status = {};
    timespec now{};
    if (::stat(path.c_str(), &status) != 0 || ::clock_gettime(CLOCK_REALTIME, &now) != 0) return 0;
    const double lag = static_cast<double>(now.tv_sec - status.st_mtim.tv_sec) +
                       static_cast<double>(now.tv_nsec - status.st_mtim.tv_nsec) * 1e-9;
    return std::max(lag, 0.0);
}

// What changed in one object from one flush to a later one.
struct Change
{
    rfm_Handle handle;
    std::string word; // "table NODES", "double array"
    bool isNew = false;
    std::int64_t difference = 0;
    bool isInRows = false; // the difference; otherwise in bytes
};

// A database that is followed: how long each object was when it was looked at last.
class View
{
public:
    explicit View(const std::string& path) : m_Identity(IdentityOf(path)), m_File(path) { Look(); }

    DatabaseFile& File() noexcept { return m_File; }
    bool IsReplaced() const
    {
        const Identity now = IdentityOf(m_File.Path());
        return now.exists && now != m_Identity;
    }
    std::uint32_t FlushCount() { return static_cast<std::uint32_t>(m_File.Database().GetFlushCount()); }
    // Whether a table came whose layout this view can't know.
    bool NeedsReopen() const noexcept { return m_NeedsReopen; }
    std::vector<Change> Look();
    // Takes over what another view saw, so that the next look tells what changed since.
    std::vector<Change> LookSince(const View& earlier);

private:
    struct Seen
    {
        Object object;
        std::int64_t size = 0;
        std::int64_t amount = 0; // rows or bytes
    };
    void Measure(Seen& seen);
    static std::optional<Change> Compare(const Seen* before, const Seen& now);

    Identity m_Identity; // before the open: a file that takes the name meanwhile is noticed
    DatabaseFile m_File;
    std::map<rfm_Handle, Seen> m_Seen;
    bool m_NeedsReopen = false;
};

int FirstRowOffset(const Object& object)
{
    return object.kind == Kind::Table ? rfm_TableFirstRowOffset : rfm_ArrayFirstRowOffset;
}

void View::Measure(Seen& seen)
{
    seen.size = m_File.Database().Space(seen.object.handle, -1).Length().Value();
    seen.amount = seen.object.rows
                      ? rfm_RowsInSpace(seen.size, FirstRowOffset(seen.object), seen.object.rowBytes)
                      : seen.size;
}

std::optional<Change> View::Compare(const Seen* before, const Seen& now)
{
    Change change;
    change.handle = now.object.handle;
    change.word = now.object.TypeWord();
    if (now.object.kind == Kind::Table) change.word += " " + OneLine(now.object.layout);
    change.isNew = before == nullptr;
    change.difference = now.amount - (before == nullptr ? 0 : before->amount);
    change.isInRows = now.object.rows.has_value();
    if (!change.isNew && change.difference == 0) return {};
    return change;
}

// What has no rows of a fixed size may have been a bare handle when it was seen first: it is described again.
std::vector<Change> View::Look()
{
    std::vector<Change> changes;
    m_NeedsReopen = false;
    for (const rfm_Handle handle : m_File.Handles())
    {
        if (handle.Value() <= rfm_MetadataPoolHandle) continue;
        const auto known = m_Seen.find(handle);
        Seen now;
        const bool isDescribed = known != m_Seen.end() && known->second.object.rowBytes > 0;
        now.object = isDescribed ? known->second.object : m_File.Describe(handle);
        if (!now.object.damage.empty())
        {
            m_NeedsReopen = true; // and the next view sees it as new
            continue;
        }
        Measure(now);
        if (const std::optional<Change> change =
                Compare(known == m_Seen.end() ? nullptr : &known->second, now))
            changes.push_back(*change);
        m_Seen[handle] = std::move(now);
    }
    return changes;
}

std::vector<Change> View::LookSince(const View& earlier)
{
    m_Seen = earlier.m_Seen;
    return Look();
}

// Null when the file can't be opened now.
std::unique_ptr<View> TryToOpen(const std::string& path)
{
    try
    {
        return std::make_unique<View>(path);
    }
    catch (const Failure&)
    {
        return nullptr;
    }
}

class FollowCommand : public Command
{
public:
    std::string_view Name() const override { return "follow"; }
    std::string_view Summary() const override { return "a line for each flush of a writer, as it comes"; }
    std::string_view Help() const override
    {
        return "Waits for a writer in another process and tells at each of its flushes what is new and how "
               "long\n"
               "after the last write it was seen. Goes on when a writer asks readers to wait, when another\n"
               "database takes the name, and when the file goes and comes back. Ends at Ctrl-C with exit "
               "code\n"
               "130, at --until-flush with 0, when the time is up with 5.\n"
               "\n"
               "examples:\n"
               "  rfm follow job.rdx\n"
               "  rfm follow job.rdx --until-flush 100 --timeout 60\n"
               "  rfm follow job.rdx --json | jq -c .changes\n";
    }
    void Declare(CLI::App& app) override
    {
        DeclareFile(app, m_File);
        app.add_flag("--json", m_Json, "a JSON object on each line, in a shape that stays (docs/cli.md)");
        DeclareSeconds(app, "--timeout", m_Timeout, "end after this many seconds");
        DeclareCount(app, "--until-flush", m_UntilFlush, "N", "end when the flush count is N or more");
    }
    int Run(Output& output) override;

private:
    bool IsReached()
    {
        return m_UntilFlush >= 0 && m_View != nullptr && m_View->FlushCount() >= m_UntilFlush;
    }
    bool IsTimeUp() const
    {
        return m_Timeout >= 0 && Clock::now() - m_Start >= std::chrono::duration<double>(m_Timeout);
    }
    void Poll();
    void PollView();
    void Update();
    void TryToReturn();
    void Reopen(std::vector<Change>& changes);
    void Lose(const char* event, const std::string& text);
    void Tell(const char* event, const std::string& text, const std::string& json = "");
    void TellOpened(const char* event);
    void TellFlush(const std::vector<Change>& changes, double lag);

    std::string m_File;
    bool m_Json = false;
    double m_Timeout = -1; // none
    std::int64_t m_UntilFlush = -1;

    Output* m_Output = nullptr;
    Clock::time_point m_Start;
    std::unique_ptr<View> m_View; // null while the file can't be opened
    bool m_IsWaiting = false;     // a semaphore was told of
    bool m_IsGone = false;
};

// Each line goes out at once: whoever reads wants it now.
void FollowCommand::Tell(const char* event, const std::string& text, const std::string& json)
{
    if (m_Json)
        m_Output->Line(fmt::format("{{\"rfm\":1,\"event\":\"{}\"{}}}", event, json));
    else
        m_Output->Line(m_Output->IsTerminal() ? fmt::format("{:<9} {}", event, text)
                                              : fmt::format("{}\t{}", event, text));
    m_Output->Flush();
}

void FollowCommand::TellOpened(const char* event)
{
    const std::uint32_t count = m_View->FlushCount();
    std::size_t objects = 0;
    for (const rfm_Handle handle : m_View->File().Handles())
        if (handle.Value() > rfm_MetadataPoolHandle) ++objects;
    Tell(event,
         fmt::format("flush {}, {}", count, Counted(static_cast<std::int64_t>(objects), "object", "objects")),
         fmt::format(",\"flush\":{},\"objects\":{}", count, objects));
}

std::string ChangeText(const Change& change)
{
    const std::string amount = change.isInRows ? Counted(change.difference, "row", "rows")
                                               : Counted(change.difference, "byte", "bytes");
    return fmt::format("{}{} ({}) {}{}", change.isNew ? "new " : "", change.word, change.handle.Value(),
                       change.difference < 0 ? "" : "+", amount);
}

void FollowCommand::TellFlush(const std::vector<Change>& changes, double lag)
{
    std::string text;
    std::string json;
    for (const Change& change : changes)
    {
        text += (text.empty() ? "" : ", ") + ChangeText(change);
        json += fmt::format("{}{{\"handle\":{},\"object\":{},\"new\":{},\"{}\":{}}}", json.empty() ? "" : ",",
                            change.handle.Value(), TextJson(change.word), change.isNew,
                            change.isInRows ? "rows" : "bytes", change.difference);
    }
    const std::uint32_t count = m_View->FlushCount();
    Tell("flush",
         fmt::format("{}{}lag {:.3f} s{}{}", count, m_Output->IsTerminal() ? "  " : "\t", lag,
                     m_Output->IsTerminal() ? "  " : "\t", text.empty() ? "nothing new" : text),
         fmt::format(",\"flush\":{},\"lag\":{:.6f},\"changes\":[{}]", count, lag, json));
}

void FollowCommand::Lose(const char* event, const std::string& text)
{
    Tell(event, text);
    m_View.reset();
    m_IsWaiting = false;
}

// The snap looks for itself, whatever the status said: an "updated" that came while a semaphore stood is used up by then.
void FollowCommand::Update()
{
    if (m_View->File().Database().Snap() == 0) return;
    const double lag = LagOf(m_File);
    std::vector<Change> changes = m_View->Look();
    if (m_View->NeedsReopen()) Reopen(changes);
    TellFlush(changes, lag);
}

// A snap doesn't learn layouts that came after the open: a view that meets one is made anew.
void FollowCommand::Reopen(std::vector<Change>& changes)
{
    std::unique_ptr<View> fresh = TryToOpen(m_File);
    if (fresh == nullptr) return;
    for (Change& change : fresh->LookSince(*m_View)) changes.push_back(std::move(change));
    const auto byHandle = [](const Change& left, const Change& right) { return left.handle < right.handle; };
    std::stable_sort(changes.begin(), changes.end(), byHandle);
    m_View = std::move(fresh);
}

void FollowCommand::PollView()
{
    if (m_View->IsReplaced()) return Lose("replaced", "another database has the name");
    switch (m_View->File().Database().FileStatus())
    {
    case rfm_FileStatus::RfmFileReplaced: return Lose("replaced", "another database has the name");
    case rfm_FileStatus::RfmFileGone:
        m_IsGone = true;
        return Lose("gone", "waiting for the file to come back");
    case rfm_FileStatus::RfmFileInTransaction:
        if (!m_IsWaiting)
            Tell("waiting", fmt::format("a writer holds {}", OneLine(LookAtSemaphore(m_File).path)));
        m_IsWaiting = true;
        return;
    case rfm_FileStatus::RfmFileUnchanged:
    case rfm_FileStatus::RfmFileUpdated: m_IsWaiting = false; return Update();
    }
}

// A file that is not there, or not yet a database, is tried again at the next poll.
void FollowCommand::TryToReturn()
{
    m_View = TryToOpen(m_File);
    if (m_View == nullptr) return;
    TellOpened(m_IsGone ? "back" : "open");
    m_IsGone = false;
}

void FollowCommand::Poll()
{
    if (m_View == nullptr)
        TryToReturn();
    else
        PollView();
}

int FollowCommand::Run(Output& output)
{
    m_Output = &output;
    m_Start = Clock::now();
    m_View = std::make_unique<View>(m_File);
    TellOpened("open");
    while (!IsReached() && !output.IsGone())
    {
        if (IsTimeUp())
            throw Failure(
                ExitBusy, OneLine(m_File), "the time is up",
                "a larger --timeout waits longer; `rfm info` tells whether a semaphore holds readers up");
        std::this_thread::sleep_for(kPollInterval);
        Poll();
    }
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeFollow() { return std::make_unique<FollowCommand>(); }
} // namespace rfm_tool
