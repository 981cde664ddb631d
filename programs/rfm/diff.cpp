#include "diff.h"

#include "Comparison.h"
#include "Text.h"
#include "WriterWatch.h"

#include <fmt/format.h>

#include <array>
#include <limits>
#include <sstream>

namespace rfm_tool
{
namespace
{
constexpr std::int64_t kAll = std::numeric_limits<std::int64_t>::max();
// Of a screen, what the command line, the last line and the next prompt want.
constexpr int kOtherLines = 4;

/// What all pairs came to.
struct Sums
{
    std::int64_t onlyInA = 0;
    std::int64_t onlyInB = 0;
    std::int64_t layouts = 0;
    std::int64_t pairs = 0;
    std::int64_t pairsThatDiffer = 0;
    std::int64_t differences = 0;
    std::optional<Difference> worst;
    std::uint32_t worstHandle = 0; // in A

    bool IsSame() const { return onlyInA + onlyInB + layouts + differences == 0; }
    void Add(const ObjectSummary& pair)
    {
        ++pairs;
        differences += pair.differences;
        if (pair.differences > 0) ++pairsThatDiffer;
        if (!pair.worst || (worst && *worst->distance >= *pair.worst->distance)) return;
        worst = pair.worst;
        worstHandle = pair.a.handle.Value();
    }
};

std::string HandleText(const Object& a, const Object& b)
{
    return a.handle == b.handle ? fmt::format("{}", a.handle.Value())
                                : fmt::format("{}|{}", a.handle.Value(), b.handle.Value());
}

std::string RowsText(const Object& object)
{
    return object.rows ? Counted(*object.rows, "row", "rows") : Counted(object.size, "byte", "bytes");
}

std::string WorstText(const Difference& worst)
{
    return fmt::format("{} at {}", NumberText(*worst.distance), worst.place);
}

/// Lines as they come: a word that says what it is, then the handle, the place, and what A and B have.
class TextReport : public ComparisonListener
{
public:
    TextReport(Output& output, std::int64_t most, bool tellsEqual)
        : m_Output(output),
          m_Between(output.IsTerminal() ? "  " : "\t"),
          m_Most(most),
          m_TellsEqual(tellsEqual)
    {
    }
    void Only(const Object& object, bool isInA) override
    {
        ++(isInA ? m_Sums.onlyInA : m_Sums.onlyInB);
        Line({isInA ? "only in A" : "only in B", fmt::format("{}", object.handle.Value()),
              fmt::format("{}, {}", SortText(object), RowsText(object))});
    }
    void Layout(const std::string& layout, const std::string& what) override
    {
        ++m_Sums.layouts;
        Line({"layout", OneLine(layout), what});
    }
    void BeginPair(const Object&, const Object&) override {}
    void Value(const ObjectSummary& pair, const Difference& difference) override
    {
        if (m_Told++ < m_Most)
            Line({"value", HandleText(pair.a, pair.b), difference.place, difference.a.text,
                  difference.b.text});
    }
    void EndPair(const ObjectSummary& pair) override
    {
        m_Sums.Add(pair);
        if (pair.differences == 0 && !m_TellsEqual) return;
        std::string what =
            pair.differences == 0 ? "equal" : Counted(pair.differences, "difference", "differences");
        if (pair.worst) what += ", worst " + WorstText(*pair.worst);
        Line({"object", HandleText(pair.a, pair.b), SortText(pair.a), what});
    }
    bool IsGone() const override { return m_Output.IsGone(); }
    const Sums& AllSums() const { return m_Sums; }
    std::int64_t Untold() const { return std::max<std::int64_t>(m_Told - m_Most, 0); }

private:
    void Line(const std::vector<std::string>& cells)
    {
        std::string line;
        for (const std::string& cell : cells) line += (line.empty() ? "" : m_Between) + cell;
        const std::size_t width = static_cast<std::size_t>(m_Output.ScreenColumns());
        if (m_Output.IsTerminal() && DisplayWidth(line) > width)
            line = std::string(CutToWidth(line, width - 1)) + ">";
        m_Output.Line(line);
    }

    Output& m_Output;
    std::string m_Between;
    std::int64_t m_Most; // values to tell
    std::int64_t m_Told = 0;
    bool m_TellsEqual;
    Sums m_Sums;
};

/// One JSON object, written as the comparison goes.
class JsonReport : public ComparisonListener
{
public:
    JsonReport(Output& output, std::int64_t most, const std::string& head) : m_Output(output), m_Most(most)
    {
        m_Output.Write(head);
    }
    void Only(const Object& object, bool isInA) override
    {
        ++(isInA ? m_Sums.onlyInA : m_Sums.onlyInB);
        Enter(isInA ? Part::OnlyInA : Part::OnlyInB);
        Element(fmt::format("{{\"handle\":{},{}}}", object.handle.Value(), SortJson(object)));
    }
    void Layout(const std::string& layout, const std::string& what) override
    {
        ++m_Sums.layouts;
        Enter(Part::Layouts);
        Element(fmt::format("{{\"layout\":{},\"what\":{}}}", TextJson(layout), TextJson(what)));
    }
    void BeginPair(const Object& a, const Object& b) override
    {
        Enter(Part::Objects);
        Element(fmt::format("{{\"handleA\":{},\"handleB\":{},{},\"values\":[", a.handle.Value(),
                            b.handle.Value(), SortJson(a)));
        m_ToldOfPair = 0;
    }
    void Value(const ObjectSummary&, const Difference& difference) override
    {
        if (m_Told++ >= m_Most) return;
        m_Output.Write((m_ToldOfPair++ == 0 ? "\n" : ",\n") + ValueJson(difference));
    }
    void EndPair(const ObjectSummary& pair) override
    {
        m_Sums.Add(pair);
        m_Output.Write(fmt::format("],\"count\":{},\"worst\":{}}}", pair.differences, WorstJson(pair.worst)));
    }
    bool IsGone() const override { return m_Output.IsGone(); }
    void Finish()
    {
        Enter(Part::End);
        m_Output.Line(fmt::format("\"same\":{},\"count\":{},\"worst\":{}}}", m_Sums.IsSame(),
                                  m_Sums.differences, WorstJson(m_Sums.worst)));
    }
    const Sums& AllSums() const { return m_Sums; }

private:
    enum class Part
    {
        Begin,
        OnlyInA,
        OnlyInB,
        Layouts,
        Objects,
        End,
    };

    static std::string SortJson(const Object& object)
    {
        std::string json = fmt::format("\"type\":\"{}\"", object.TypeWord());
        if (object.kind == Kind::Table) json += ",\"layout\":" + TextJson(object.layout);
        return object.rows ? json + fmt::format(",\"rows\":{}", *object.rows)
                           : json + fmt::format(",\"bytes\":{}", object.size);
    }
    static std::string ValueJson(const Difference& difference)
    {
        return fmt::format("{{\"place\":{},\"a\":{},\"b\":{}}}", TextJson(difference.place),
                           difference.a.json, difference.b.json);
    }
    static std::string WorstJson(const std::optional<Difference>& worst)
    {
        if (!worst) return "null";
        std::string json = ValueJson(*worst);
        json.back() = ',';
        return json + "\"distance\":" + NumberJson(*worst->distance) + "}";
    }
    // Closes the arrays before `part` and opens those up to it.
    void Enter(Part part)
    {
        constexpr std::array kNames{"", "onlyInA", "onlyInB", "layouts", "objects"};
        while (m_Part != part)
        {
            if (m_Part != Part::Begin) m_Output.Write("],");
            m_Part = static_cast<Part>(static_cast<int>(m_Part) + 1);
            if (m_Part != Part::End)
                m_Output.Write(fmt::format("\n\"{}\":[", kNames[static_cast<std::size_t>(m_Part)]));
            m_Elements = 0;
        }
    }
    void Element(const std::string& json) { m_Output.Write((m_Elements++ == 0 ? "\n" : ",\n") + json); }

    Output& m_Output;
    std::int64_t m_Most;
    std::int64_t m_Told = 0;
    std::int64_t m_ToldOfPair = 0;
    std::int64_t m_Elements = 0;
    Part m_Part = Part::Begin;
    Sums m_Sums;
};

std::vector<std::string> Words(const std::string& list)
{
    std::vector<std::string> words;
    std::istringstream stream(list);
    for (std::string word; std::getline(stream, word, ',');)
        if (!word.empty()) words.push_back(word);
    return words;
}

class DiffCommand : public Command
{
public:
    std::string_view Name() const override { return "diff"; }
    std::string_view Summary() const override { return "what differs between two databases"; }
    std::string_view Help() const override
    {
        return "Objects that only one of A and B has come first, then layouts, then the objects of both in\n"
               "pairs: rows by number or by key, elements, items, bytes. NaN equals NaN, and a field with "
               "data\n"
               "differs from one without. Objects are paired by handle, or by order within their type and\n"
               "layout when handles have shifted. Times, flush counts and descriptions don't count.\n"
               "Exit code 0: the same; 1: different.\n"
               "\n"
               "examples:\n"
               "  rfm diff old.rdx new.rdx --rtol 1e-9\n"
               "  rfm diff old.rdx new.rdx --key id --ignore 'time*,host'\n"
               "  rfm diff old.rdx new.rdx --json | jq .worst\n";
    }
    void Declare(Options& options) override
    {
        options.Add("A", m_A, "a database").Required();
        options.Add("B", m_B, "the one that it is compared with").Required();
        options.Add("--key", m_Key, "find rows by these fields, not by number").ValueName("F[,F]");
        options.Add("--ignore", m_Ignore, "fields not to compare; globs too").ValueName("F[,F]");
        DeclareNumber(options, "--rtol", m_Options.relative, "T",
                      "may differ by T times the larger number (0)");
        DeclareNumber(options, "--atol", m_Options.absolute, "T", "may differ by T (0)");
        options.Add("--pair", m_Pair, "objects by handle or by order (as fits)")
            .ValueName("HOW")
            .Choices({"handle", "order"})
            .Check([](const std::string& text) -> std::string
                   { return text == "handle" || text == "order" ? "" : text + " not in {handle,order}"; });
        DeclareCount(options, "-n", m_Most, "N", "tell at most N values");
        options.Add("-a,--all", m_All, "tell everything, on a terminal too").Excludes("-n");
        m_Style.DeclareJson(options);
    }
    int Run(Output& output) override;

private:
    std::int64_t MostValues(const Output& output) const;
    void Tell(Output& output, const Sums& sums, std::int64_t untold) const;
    int CompareAsText(Output& output, DatabaseFile& a, DatabaseFile& b) const;
    int CompareAsJson(Output& output, DatabaseFile& a, DatabaseFile& b) const;

    std::string m_A;
    std::string m_B;
    std::string m_Key;
    std::string m_Ignore;
    std::string m_Pair;
    ComparisonOptions m_Options;
    std::int64_t m_Most = -1; // not given
    bool m_All = false;
    StyleOptions m_Style;
};

std::int64_t DiffCommand::MostValues(const Output& output) const
{
    if (m_Most >= 0) return m_Most;
    if (m_All || m_Style.json || !output.IsTerminal()) return kAll;
    return std::max(output.ScreenLines() - kOtherLines, 1);
}

void DiffCommand::Tell(Output& output, const Sums& sums, std::int64_t untold) const
{
    if (untold > 0)
        output.Line(fmt::format("and {} more; --all tells them", Counted(untold, "value", "values")));
    if (sums.IsSame()) return output.Line(fmt::format("same: {}", Counted(sums.pairs, "object", "objects")));
    std::string line =
        fmt::format("different: {} of {} with {}", sums.pairsThatDiffer, Counted(sums.pairs, "pair", "pairs"),
                    Counted(sums.differences, "difference", "differences"));
    if (sums.onlyInA + sums.onlyInB > 0)
        line += fmt::format(", {} only in A, {} only in B", sums.onlyInA, sums.onlyInB);
    if (sums.layouts > 0)
        line += ", " + Counted(sums.layouts, "difference of layouts", "differences of layouts");
    if (sums.worst) line += fmt::format(", worst {} of handle {}", WorstText(*sums.worst), sums.worstHandle);
    output.Line(line);
}

int DiffCommand::CompareAsText(Output& output, DatabaseFile& a, DatabaseFile& b) const
{
    TextReport report(output, MostValues(output), m_All || !output.IsTerminal());
    CompareDatabases(a, b, m_Options, report);
    Tell(output, report.AllSums(), report.Untold());
    return report.AllSums().IsSame() ? ExitDone : ExitNo;
}

int DiffCommand::CompareAsJson(Output& output, DatabaseFile& a, DatabaseFile& b) const
{
    JsonReport report(
        output, MostValues(output),
        fmt::format("{{\"rfm\":1,\"command\":\"diff\",\"a\":{},\"b\":{},", TextJson(m_A), TextJson(m_B)));
    CompareDatabases(a, b, m_Options, report);
    report.Finish();
    return report.AllSums().IsSame() ? ExitDone : ExitNo;
}

int DiffCommand::Run(Output& output)
{
    m_Options.key = Words(m_Key);
    m_Options.ignore = Words(m_Ignore);
    if (!m_Pair.empty()) m_Options.pairing = m_Pair == "order" ? Pairing::ByOrder : Pairing::ByHandle;
    DatabaseFile a(m_A);
    DatabaseFile b(m_B);
    for (DatabaseFile* file : {&a, &b}) TellOfSemaphore(*file, "a change may be compared half done");
    const WriterWatch watchA(m_A);
    const WriterWatch watchB(m_B);
    const int code = m_Style.json ? CompareAsJson(output, a, b) : CompareAsText(output, a, b);
    watchA.RequireRest();
    watchB.RequireRest();
    return code;
}
} // namespace

std::unique_ptr<Command> MakeDiff() { return std::make_unique<DiffCommand>(); }
} // namespace rfm_tool
