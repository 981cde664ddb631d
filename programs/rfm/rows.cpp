#include "rows.h"

#include "RowQuery.h"
#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <limits>

namespace rfm_tool
{
namespace
{
constexpr std::int64_t kAllRows = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kFewRows = 10; // of head and tail, when -n is not given

/// What rows, head and tail have in common: the query, the style and the listing.
class RowListing : public Command
{
public:
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        m_Query.Declare(options);
        m_Style.DeclareAll(options);
        DeclareCount(options, "-n", m_Count, "N", "at most this many rows");
    }
    int Run(Output& output) override;

protected:
    // Writes the rows that the command wants; `rows` stand in front of the first.
    virtual void List(QueriedRows& rows, Listing& listing) = 0;
    virtual void TellTheRest(QueriedRows&) const {}
    // Whether more than a screen was asked for.
    virtual bool WantsPager() const { return m_Count > m_Output->ScreenLines() - 3; }
    bool IsOnScreen() const { return m_Style.Choose(*m_Output) == Style::Aligned; }
    // Writes rows until there are `count` more, and tells how many there were.
    std::int64_t ListUpTo(QueriedRows& rows, Listing& listing, std::int64_t count) const;

    std::int64_t m_Count = -1; // not given
    StyleOptions m_Style;
    Output* m_Output = nullptr;

private:
    std::string m_File;
    RowQuery m_Query;
};

std::string JsonHead(std::string_view command, const DatabaseFile& file, const Object& object)
{
    std::string head = fmt::format("\"command\":\"{}\",\"file\":{},\"handle\":{},\"type\":\"{}\",", command,
                                   TextJson(file.Path()), object.handle.Value(), object.TypeWord());
    if (object.kind == Kind::Table) head += fmt::format("\"layout\":{},", TextJson(object.layout));
    return head;
}

int RowListing::Run(Output& output)
{
    DatabaseFile file(m_File);
    QueriedRows rows(file, m_Query);
    TellOfSemaphore(file, "a change may be shown half done");
    m_Output = &output;
    if (IsOnScreen() && WantsPager()) output.Page();
    Listing listing(output, m_Style.Choose(output), rows.Columns(), JsonHead(Name(), file, rows.Object()));
    const auto list = [&]
    {
        List(rows, listing);
        listing.Finish();
        output.Finish();
        if (!output.IsGone()) TellTheRest(rows);
    };
    try
    {
        ReadRows(file, rows, list);
    }
    catch (const Failure&)
    {
        if (IsOnScreen()) listing.WriteKept();
        throw;
    }
    if (listing.WasCut() && !output.IsGone())
        Note("lines that end with > are cut at the width of the screen; --fields chooses some of them, --all "
             "shows them in a pager");
    return ExitDone;
}

std::int64_t RowListing::ListUpTo(QueriedRows& rows, Listing& listing, std::int64_t count) const
{
    std::int64_t listed = 0;
    for (; listed < count && !m_Output->IsGone() && rows.Next(); ++listed) listing.Row(rows.Values());
    return listed;
}

class RowsCommand : public RowListing
{
public:
    std::string_view Name() const override { return "rows"; }
    std::string_view OtherName() const override { return "dump"; }
    std::string_view Summary() const override { return "rows of a table or array, items of a stream"; }
    std::string_view Help() const override
    {
        return "On a terminal one screen is shown, everywhere else all rows, with tabs between the cells. A "
               "field\n"
               "without data is empty, null in JSON. A plain space is shown as bytes. `rfm dump` is the "
               "same.\n"
               "\n"
               "examples:\n"
               "  rfm rows job.rdx NODES --where 'x > 0.5 and present(name)'\n"
               "  rfm rows job.rdx 9 --from 100 -n 10        rows 100 to 109 of an array\n"
               "  rfm rows job.rdx NODES --fields id,x --csv > nodes.csv\n";
    }
    void Declare(Options& options) override
    {
        RowListing::Declare(options);
        DeclareCount(options, "--from", m_From, "ROW", "the first row to look at, from 0");
        options.Add("-a,--all", m_All, "all rows, on a terminal in a pager").Excludes("-n");
    }

protected:
    void List(QueriedRows& rows, Listing& listing) override;
    void TellTheRest(QueriedRows& rows) const override;
    bool WantsPager() const override { return m_All || RowListing::WantsPager(); }

private:
    bool IsOneScreen() const { return m_Count < 0 && !m_All && IsOnScreen(); }

    std::int64_t m_From = 0;
    bool m_All = false;
};

// Of a screen, the names of the columns, the note behind the rows and the next prompt want a line each.
void RowsCommand::List(QueriedRows& rows, Listing& listing)
{
    std::int64_t count = m_Count < 0 ? kAllRows : m_Count;
    if (IsOneScreen()) count = std::max(m_Output->ScreenLines() - 3, 1);
    if (m_From > 0) rows.Seek(m_From);
    ListUpTo(rows, listing, count);
}

void RowsCommand::TellTheRest(QueriedRows& rows) const
{
    if (!IsOneScreen() || !rows.Next()) return;
    const std::optional<std::int64_t> length = rows.Source().Length();
    Note(fmt::format("there is more{}; --all shows it, --from {} goes on",
                     length && rows.IsWhole() ? fmt::format(": {} rows in all", *length) : "",
                     rows.Source().Row()));
}

class HeadCommand : public RowListing
{
public:
    std::string_view Name() const override { return "head"; }
    std::string_view Summary() const override { return "the first rows of a table, array or stream"; }
    std::string_view Help() const override
    {
        return "The first 10 rows, or as many as -n says; with --where the first for which it holds.\n"
               "\n"
               "examples:\n"
               "  rfm head job.rdx NODES\n"
               "  rfm head job.rdx STEPS -n 1 --where 'time > 0.5'      the first step after a time\n"
               "  rfm head job.rdx 9.0 --json | jq '.rows[][1]'\n";
    }

protected:
    void List(QueriedRows& rows, Listing& listing) override
    {
        ListUpTo(rows, listing, m_Count < 0 ? kFewRows : m_Count);
    }
};

class TailCommand : public RowListing
{
public:
    std::string_view Name() const override { return "tail"; }
    std::string_view Summary() const override { return "the last rows of a table, array or stream"; }
    std::string_view Help() const override
    {
        return "The last 10 rows, or as many as -n says; with --where the last for which it holds. A stream "
               "is\n"
               "read from its start. `rfm follow` shows what comes.\n"
               "\n"
               "examples:\n"
               "  rfm tail job.rdx STEPS\n"
               "  rfm tail job.rdx STEPS -n 1 --fields time             how far is it?\n"
               "  rfm tail job.rdx MESSAGES --where 'text ~ \"*warning*\"'\n";
    }

protected:
    void List(QueriedRows& rows, Listing& listing) override;

private:
    std::int64_t Wanted() const { return m_Count < 0 ? kFewRows : m_Count; }
};

// Which rows are the last for which a question holds shows at the end only: they are looked for first, and read again.
void TailCommand::List(QueriedRows& rows, Listing& listing)
{
    const std::optional<std::int64_t> length = rows.Source().Length();
    if (length && rows.IsWhole())
    {
        rows.Seek(std::max<std::int64_t>(*length - Wanted(), 0));
        ListUpTo(rows, listing, Wanted());
        return;
    }
    std::deque<std::int64_t> last;
    while (Wanted() > 0 && rows.Next())
    {
        last.push_back(rows.Source().Row());
        if (static_cast<std::int64_t>(last.size()) > Wanted()) last.pop_front();
    }
    for (const std::int64_t row : last)
    {
        rows.Seek(row);
        ListUpTo(rows, listing, 1);
    }
}
} // namespace

std::unique_ptr<Command> MakeRows() { return std::make_unique<RowsCommand>(); }
std::unique_ptr<Command> MakeHead() { return std::make_unique<HeadCommand>(); }
std::unique_ptr<Command> MakeTail() { return std::make_unique<TailCommand>(); }
} // namespace rfm_tool
