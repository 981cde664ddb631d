#include "follow.h"

#include "DatabaseFile.h"
#include "Extremes.h"
#include "FileKind.h"
#include "Glob.h"
#include "RemoteDoor.h"
#include "RowSource.h"
#include "Selection.h"
#include "Text.h"
#include "rfm_LinkageFormat.h"
#include "rfm_ObjectFormat.h"

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
constexpr std::chrono::milliseconds kRemotePollInterval{100}; // each is a round trip

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
    if (IsRemotePath(path) || ::stat(path.c_str(), &status) != 0) return {};
    return {status.st_dev, status.st_ino, true};
}

// Seconds from the last write of the file to now: what a flush needed to be seen. Another host has a clock of its own.
std::optional<double> LagOf(const std::string& path)
{
    if (IsRemotePath(path)) return {};
    struct stat status = {};
    timespec now{};
    if (::stat(path.c_str(), &status) != 0 || ::clock_gettime(CLOCK_REALTIME, &now) != 0) return 0;
    const double lag = static_cast<double>(now.tv_sec - status.st_mtim.tv_sec) +
                       static_cast<double>(now.tv_nsec - status.st_mtim.tv_nsec) * 1e-9;
    return std::max(lag, 0.0);
}

// Of the new rows of one object: a field of a table, or all elements of an array, which have no name.
struct FieldExtremes
{
    std::string field;
    Extremes extremes;
};

// What changed in one object from one flush to a later one.
struct Change
{
    rfm_Handle handle;
    std::string word; // "table NODES", "double array"
    bool isNew = false;
    std::int64_t difference = 0;
    bool isInRows = false; // the difference; otherwise in bytes
    std::vector<FieldExtremes> extremes;
};

// What the one who follows wants to be told of: all objects, or those that a word chooses, and all their fields or
// some.
struct Interest
{
    std::string object; // empty: all
    std::string fields; // a name or a glob; empty: all

    bool Has(const Object& each) const { return object.empty() || Names(object, each); }
    bool HasField(const std::string& name) const { return fields.empty() || MatchesGlob(fields, name); }
};

// A database that is followed: how long each object was when it was looked at last.
class View
{
public:
    // What is there at first is no change.
    View(const std::string& path, const Interest& interest)
        : m_Interest(interest),
          m_Identity(IdentityOf(path)),
          m_File(path)
    {
        Take(false);
    }

    DatabaseFile& File() noexcept { return m_File; }
    bool IsReplaced() const
    {
        const Identity now = IdentityOf(m_File.Path());
        return now.exists && now != m_Identity;
    }
    std::uint32_t FlushCount() { return static_cast<std::uint32_t>(m_File.Database().GetFlushCount()); }
    // Whether a table came whose layout this view can't know.
    bool NeedsReopen() const noexcept { return m_NeedsReopen; }
    std::vector<Change> Look() { return Take(true); }
    // Takes over what another view saw, so that the next look tells what changed since.
    std::vector<Change> LookSince(const View& earlier);

private:
    struct Seen
    {
        Object object;
        std::int64_t size = 0;
        std::int64_t amount = 0; // rows or bytes
    };
    std::vector<Change> Take(bool wantsExtremes);
    void Measure(Seen& seen);
    std::vector<FieldExtremes> ExtremesBehind(std::int64_t row, const Object& object);
    static std::optional<Change> Compare(const Seen* before, const Seen& now);

    Interest m_Interest;
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

// What can't be read yet, of a writer that flushed the database without the object, is left out.
std::vector<FieldExtremes> View::ExtremesBehind(std::int64_t row, const Object& object)
{
    const bool isArray = object.kind == Kind::Array;
    std::vector<FieldExtremes> found;
    try
    {
        const std::unique_ptr<RowSource> rows = OpenRows(m_File, object);
        const std::size_t columns = rows->Columns().size();
        found.resize(isArray ? 1 : columns);
        for (std::size_t i = 0; i < columns && !isArray; ++i) found[i].field = rows->Columns()[i].name;
        for (rows->Seek(row); rows->Next();)
            for (std::size_t i = 0; i < columns; ++i)
                if (!isArray || m_Interest.HasField(rows->Columns()[i].name))
                    found[isArray ? 0 : i].extremes.Add(rows->ValueOf(static_cast<int>(i)));
    }
    catch (const nex_Exception&)
    {
        return {};
    }
    std::erase_if(found, [&](const FieldExtremes& each)
                  { return !each.extremes.HasNumbers() || (!isArray && !m_Interest.HasField(each.field)); });
    return found;
}

// What has no rows of a fixed size may have been a bare handle when it was seen first: it is described again.
std::vector<Change> View::Take(bool wantsExtremes)
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
        std::optional<Change> change = Compare(known == m_Seen.end() ? nullptr : &known->second, now);
        if (change && m_Interest.Has(now.object))
        {
            if (wantsExtremes && change->isInRows && change->difference > 0)
                change->extremes = ExtremesBehind(now.amount - change->difference, now.object);
            changes.push_back(std::move(*change));
        }
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
std::unique_ptr<View> TryToOpen(const std::string& path, const Interest& interest)
{
    try
    {
        return std::make_unique<View>(path, interest);
    }
    catch (const Failure& failure)
    {
        // Where nobody can be asked for the file, waiting for it is of no use.
        const bool isFileRefused =
            std::string_view(failure.what()).find("assistant,") != std::string_view::npos;
        if (failure.Code() == ExitRemote && !isFileRefused) throw;
        return nullptr;
    }
}

// What --until asks of a row of the object that is followed: its fields, and the flush count behind them.
class RowAtFlush : public ExpressionRow
{
public:
    RowAtFlush(const RowSource& rows, std::uint32_t flushCount) : m_Rows(rows), m_FlushCount(flushCount) {}
    static std::vector<ExpressionField> Fields(const RowSource& rows)
    {
        std::vector<ExpressionField> fields = ExpressionFieldsOf(rows);
        fields.push_back({"flush", ExpressionField::Type::Number, FlushIndex(rows)});
        return fields;
    }
    std::int64_t Number() const override { return m_Rows.Number(); }
    Value ValueOf(int field) const override
    {
        return field == FlushIndex(m_Rows) ? Value::OfInt(m_FlushCount) : m_Rows.ValueOf(field);
    }

private:
    static int FlushIndex(const RowSource& rows) { return static_cast<int>(rows.Columns().size()); }

    const RowSource& m_Rows;
    std::uint32_t m_FlushCount;
};

// And of a database as a whole; what it has no rows for is 0.
class FileAtFlush : public ExpressionRow
{
public:
    FileAtFlush(std::uint32_t flushCount, std::int64_t objects) : m_FlushCount(flushCount), m_Objects(objects)
    {
    }
    static std::vector<ExpressionField> Fields()
    {
        return {{"flush", ExpressionField::Type::Number}, {"objects", ExpressionField::Type::Number}};
    }
    std::int64_t Number() const override { return 0; }
    Value ValueOf(int field) const override { return Value::OfInt(field == 0 ? m_FlushCount : m_Objects); }

private:
    std::uint32_t m_FlushCount;
    std::int64_t m_Objects;
};

class FollowCommand : public Command
{
public:
    std::string_view Name() const override { return "follow"; }
    std::string_view Summary() const override { return "a line for each flush of a writer, as it comes"; }
    std::string_view Help() const override
    {
        return "Waits for a writer in another process and tells at each of its flushes what is new, the "
               "least and\n"
               "greatest of the new numbers, and how long the flush took to be seen. OBJECT keeps it to some "
               "objects\n"
               "or fields. It ends at --until, at --timeout (exit code 5) or at Ctrl-C: --until asks the "
               "rows of "
               "the\n"
               "one OBJECT, old and new ones, or without OBJECT `flush` and `objects`. Plain files only.\n"
               "\n"
               "examples:\n"
               "  rfm follow job.rdx\n"
               "  rfm follow job.rdx STEPS --until 'time >= 10' --timeout 60\n"
               "  rfm follow job.rdx --until 'flush >= 100' --json | jq -c .changes\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        options.Add("OBJECT", m_Object, "a handle, the name of a table, or TABLE.FIELD; with * ? [a-z]");
        options.Add("--json", m_Json, "a JSON object on each line, in a shape that stays (docs/cli.md)");
        DeclareSeconds(options, "--timeout", m_Timeout, "end after this many seconds");
        options.Add("--until", m_UntilText, "end when this holds: 'time >= 10', 'flush >= 100'")
            .ValueName("EXPR");
    }
    int Run(Output& output) override;

private:
    [[noreturn]] void ThrowTimeUp() const;
    void ChooseInterest();
    void PrepareUntil();
    bool IsReached();
    bool HoldsForARow();
    std::int64_t ObjectCount();
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
    void TellFlush(const std::vector<Change>& changes, std::optional<double> lag);

    std::string m_File;
    bool m_Json = false;
    double m_Timeout = -1; // none
    std::string m_Object;
    std::string m_UntilText;

    Output* m_Output = nullptr;
    Clock::time_point m_Start;
    Interest m_Interest;
    std::unique_ptr<View> m_View;        // null while the file can't be opened
    std::optional<Expression> m_Until;   // none when it wasn't given, or the file has no such object now
    std::optional<Object> m_UntilObject; // whose rows it asks
    std::int64_t m_NextAsked = 0;        // the first of these rows that was not asked yet
    bool m_HasNews = false;              // since it was asked last
    bool m_IsWaiting = false;            // a semaphore was told of
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

std::int64_t FollowCommand::ObjectCount()
{
    const std::vector<rfm_Handle> handles = m_View->File().Handles();
    return std::count_if(handles.begin(), handles.end(),
                         [](rfm_Handle handle) { return handle.Value() > rfm_MetadataPoolHandle; });
}

void FollowCommand::TellOpened(const char* event)
{
    const std::uint32_t count = m_View->FlushCount();
    const std::int64_t objects = ObjectCount();
    m_HasNews = true;
    Tell(event, fmt::format("flush {}, {}", count, Counted(objects, "object", "objects")),
         fmt::format(",\"flush\":{},\"objects\":{}", count, objects));
    const FileKind kind = KindOfFile(m_File);
    if (kind != FileKind::Plain)
        Note(fmt::format("{}: {}: it never tells that it changed; open it anew to see what came",
                         OneLine(m_File), KindWord(kind)));
}

// "time 0.5, load 1 to 3"; a screen's line has room for a few.
std::string ExtremesText(const std::vector<FieldExtremes>& all)
{
    constexpr std::size_t kShown = 4;
    std::string text;
    for (std::size_t i = 0; i < std::min(kShown, all.size()); ++i)
    {
        const std::string least = TextOf(all[i].extremes.Minimum());
        const std::string greatest = TextOf(all[i].extremes.Maximum());
        text += i == 0 ? ": " : ", ";
        if (!all[i].field.empty()) text += OneLine(all[i].field) + " ";
        text += least == greatest ? least : fmt::format("{} to {}", least, greatest);
    }
    return all.size() > kShown ? text + ", ..." : text;
}

std::string ExtremesJson(const std::vector<FieldExtremes>& all)
{
    std::string json;
    for (const FieldExtremes& each : all)
        json += fmt::format("{}{{\"field\":{},\"minimum\":{},\"maximum\":{}}}", json.empty() ? "" : ",",
                            each.field.empty() ? "null" : TextJson(each.field),
                            JsonOf(each.extremes.Minimum()), JsonOf(each.extremes.Maximum()));
    return json;
}

std::string ChangeText(const Change& change)
{
    const std::string amount = change.isInRows ? Counted(change.difference, "row", "rows")
                                               : Counted(change.difference, "byte", "bytes");
    return fmt::format("{}{} ({}) {}{}{}", change.isNew ? "new " : "", change.word, change.handle.Value(),
                       change.difference < 0 ? "" : "+", amount, ExtremesText(change.extremes));
}

void FollowCommand::TellFlush(const std::vector<Change>& changes, std::optional<double> lag)
{
    std::string text;
    std::string json;
    for (const Change& change : changes)
    {
        text += (text.empty() ? "" : "; ") + ChangeText(change);
        json +=
            fmt::format("{}{{\"handle\":{},\"object\":{},\"new\":{},\"{}\":{},\"extremes\":[{}]}}",
                        json.empty() ? "" : ",", change.handle.Value(), TextJson(change.word), change.isNew,
                        change.isInRows ? "rows" : "bytes", change.difference, ExtremesJson(change.extremes));
    }
    const std::uint32_t count = m_View->FlushCount();
    const char* gap = m_Output->IsTerminal() ? "  " : "\t";
    const std::string lagText = lag ? fmt::format("{:.3f} s", *lag) : "unknown";
    const std::string lagJson = lag ? fmt::format("{:.6f}", *lag) : "null";
    m_HasNews = true;
    Tell("flush",
         fmt::format("{}{}lag {}{}{}", count, gap, lagText, gap, text.empty() ? "nothing new" : text),
         fmt::format(",\"flush\":{},\"lag\":{},\"changes\":[{}]", count, lagJson, json));
}

void FollowCommand::Lose(const char* event, const std::string& text)
{
    Tell(event, text);
    m_View.reset();
    m_IsWaiting = false;
}

// The snap looks for itself, whatever the status said: an "updated" that came while a semaphore stood is used up by
// then.
void FollowCommand::Update()
{
    if (m_View->File().Database().Snap() == 0) return;
    const std::optional<double> lag = LagOf(m_File);
    std::vector<Change> changes = m_View->Look();
    if (m_View->NeedsReopen()) Reopen(changes);
    TellFlush(changes, lag);
}

// A snap doesn't learn layouts that came after the open: a view that meets one is made anew.
void FollowCommand::Reopen(std::vector<Change>& changes)
{
    std::unique_ptr<View> fresh = TryToOpen(m_File, m_Interest);
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
            Tell("waiting", IsRemotePath(m_File)
                                ? "a writer asks readers to wait"
                                : fmt::format("a writer holds {}", OneLine(LookAtSemaphore(m_File).path)));
        m_IsWaiting = true;
        return;
    case rfm_FileStatus::RfmFileUnchanged:
    case rfm_FileStatus::RfmFileUpdated: m_IsWaiting = false; return Update();
    }
}

// A file that is not there, or not yet a database, is tried again at the next poll.
void FollowCommand::TryToReturn()
{
    m_View = TryToOpen(m_File, m_Interest);
    if (m_View == nullptr) return;
    try
    {
        PrepareUntil();
    }
    catch (const Failure&)
    {
        m_Until.reset(); // a database without such an object took the name: nothing in it can be waited for
    }
    TellOpened(m_IsGone ? "back" : "open");
    m_IsGone = false;
}

void FollowCommand::Poll()
{
    if (m_View == nullptr) return TryToReturn();
    try
    {
        PollView();
    }
    catch (const nex_Exception& cause)
    {
        ThrowIfRemote(m_File, cause);
        throw;
    }
}

// The part of OBJECT that names objects, and the one that names fields: the file has to have such ones now.
void FollowCommand::ChooseInterest()
{
    if (m_Object.empty()) return;
    DatabaseFile file(m_File);
    const std::vector<Selected> chosen = Select(file, {m_Object});
    m_Interest.object = m_Object;
    if (!chosen.front().fields) return;
    const std::size_t dot = m_Object.rfind('.');
    m_Interest = {m_Object.substr(0, dot), m_Object.substr(dot + 1)};
}

void FollowCommand::PrepareUntil()
{
    m_Until.reset();
    m_NextAsked = 0;
    if (m_UntilText.empty()) return;
    if (m_Object.empty())
    {
        m_Until.emplace("--until", m_UntilText, FileAtFlush::Fields());
        return;
    }
    m_UntilObject = SelectOne(m_View->File(), m_Object).object;
    const std::unique_ptr<RowSource> rows = OpenRows(m_View->File(), *m_UntilObject);
    m_Until.emplace("--until", m_UntilText, RowAtFlush::Fields(*rows));
}

bool FollowCommand::IsReached()
{
    if (!m_Until || m_View == nullptr || !m_HasNews) return false;
    m_HasNews = false;
    if (!m_Object.empty()) return HoldsForARow();
    return m_Until->Holds(FileAtFlush(m_View->FlushCount(), ObjectCount()));
}

// Each row is asked once. What can't be read yet is asked at the next flush.
bool FollowCommand::HoldsForARow()
{
    try
    {
        const Object object = m_View->File().Describe(m_UntilObject->handle);
        const std::unique_ptr<RowSource> rows = OpenRows(m_View->File(), object);
        const RowAtFlush row(*rows, m_View->FlushCount());
        for (rows->Seek(m_NextAsked); rows->Next(); m_NextAsked = rows->Row() + 1)
            if (m_Until->Holds(row)) return true;
    }
    catch (const nex_Exception&)
    {
        return false;
    }
    return false;
}

void FollowCommand::ThrowTimeUp() const
{
    const bool tellsOfFlushes = KindOfFile(m_File) == FileKind::Plain;
    throw Failure(
        ExitBusy, OneLine(m_File), "the time is up",
        tellsOfFlushes
            ? "a larger --timeout waits longer; `rfm info` tells whether a semaphore holds readers up"
            : "only a plain file tells of its flushes");
}

int FollowCommand::Run(Output& output)
{
    m_Output = &output;
    m_Start = Clock::now();
    ChooseInterest();
    m_View = std::make_unique<View>(m_File, m_Interest);
    PrepareUntil();
    TellOpened("open");
    while (!IsReached() && !output.IsGone())
    {
        if (IsTimeUp()) ThrowTimeUp();
        std::this_thread::sleep_for(IsRemotePath(m_File) ? kRemotePollInterval : kPollInterval);
        Poll();
    }
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeFollow() { return std::make_unique<FollowCommand>(); }
} // namespace rfm_tool
