#include "export.h"

#include "FileTarget.h"
#include "LittleEndian.h"
#include "MeshExport.h"
#include "NewFile.h"
#include "NpyFormat.h"
#include "Progress.h"
#include "RowQuery.h"
#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

namespace rfm_tool
{
namespace
{
constexpr std::int64_t kRowsBetweenLooks = 1024; // at the clock, for the line that tells how far it is

class ExportCommand : public Command
{
public:
    std::string_view Name() const override { return "export"; }
    std::string_view Summary() const override { return "rows, arrays or a mesh for other tools"; }
    std::string_view Help() const override
    {
        return "csv and jsonl take rows of any object, npy arrays of numbers, and vtu a mesh out of tables "
               "of "
               "nodes\n"
               "and elements, with OBJECTs for its data. Several objects give a file each in the folder "
               "OUT.\n"
               "\n"
               "examples:\n"
               "  rfm export job.rdx NODES --to csv -o nodes.csv\n"
               "  rfm export job.rdx '1?' --to npy -o arrays            arrays/14.npy, arrays/16.npy ...\n"
               "  rfm export job.rdx t=14 --to vtu -o job.vtu --mesh nodes=NODES --mesh elements=ELEMENTS\n";
    }
    void Declare(Options& options) override;
    int Run(Output& output) override;

private:
    void RequireFittingOptions() const;
    std::vector<Selected> Choose(DatabaseFile& file) const;
    int ExportOne(DatabaseFile& file, const Selected& selected, Output& output) const;
    int ExportIntoFolder(DatabaseFile& file, const std::vector<Selected>& chosen, Output& output) const;
    int ExportMesh(DatabaseFile& file, Output& output) const;
    void ExportToFile(DatabaseFile& file, const Selected& selected, const std::string& path,
                      Output& output) const;
    std::int64_t WriteRows(DatabaseFile& file, QueriedRows& rows, ByteTarget& target,
                           Progress* progress) const;
    std::int64_t WriteNumbers(DatabaseFile& file, QueriedRows& rows, FileTarget& target,
                              Progress& progress) const;
    bool Is(std::string_view form) const { return m_To == form; }

    std::string m_File;
    std::vector<std::string> m_Objects;
    std::string m_To;
    std::string m_Out;
    bool m_Force = false;
    RowQuery m_Query;
    std::vector<std::string> m_Mesh;
    std::string m_Map;
};

void ExportCommand::Declare(Options& options)
{
    DeclareFile(options, m_File);
    options.Add("OBJECT", m_Objects, "handles, names of tables, TABLE.FIELD; with * ? [a-z]");
    options.Add("--to", m_To, "csv, jsonl, npy or vtu")
        .Required()
        .ValueName("FORM")
        .OneOf({"csv", "jsonl", "npy", "vtu"});
    options.Add("-o,--out", m_Out, "a new file, or a folder of such; csv and jsonl do without")
        .ValueName("OUT")
        .NamesNewFile();
    options.Add("-f,--force", m_Force, "replace files that are there");
    options.Add("--where", m_Query.where, "only rows for which this holds: 'x > 0 and name ~ \"a*\"'")
        .ValueName("EXPR");
    options.Add("--fields", m_Query.fields, "only these fields, in this order").ValueName("A,B");
    options.Add("--mesh", m_Mesh, "how tables make the mesh of a vtu, such as nodes=NODES")
        .ValueName("KEY=VALUE");
    options.Add("--map", m_Map, "a file with lines KEY=VALUE of that kind").ValueName("MAP");
}

void ExportCommand::RequireFittingOptions() const
{
    const bool isMesh = Is("vtu");
    if (!isMesh && (!m_Mesh.empty() || !m_Map.empty()))
        throw Failure(ExitUsage, "--to " + m_To, "--mesh and --map are for vtu",
                      "leave them away, or say --to vtu");
    if (isMesh && (!m_Query.where.empty() || !m_Query.fields.empty()))
        throw Failure(ExitUsage, "--to vtu", "a mesh is exported whole", "leave --where and --fields away");
    if ((isMesh || Is("npy")) && m_Out.empty())
        throw Failure(ExitUsage, "--to " + m_To, "its bytes are not for standard output",
                      "give a file with -o");
}

// A file for each object: under the name of its layout where this tells which one it is, else by its handle.
class FileNames
{
public:
    FileNames(const std::vector<Selected>& chosen, std::string ending) : m_Ending(std::move(ending))
    {
        for (const Selected& each : chosen)
            if (!m_Seen.insert(each.object.layout).second) m_Ambiguous.insert(each.object.layout);
    }
    std::string Of(const Object& object) const
    {
        const std::string handle = NumberText(std::int64_t{object.handle.Value()});
        if (object.kind != Kind::Table) return handle + m_Ending;
        const bool isName = std::all_of(object.layout.begin(), object.layout.end(), IsHarmless) &&
                            !object.layout.starts_with('.') && object.layout.size() <= kLongest;
        if (!isName) return "table-" + handle + m_Ending;
        return object.layout + (m_Ambiguous.contains(object.layout) ? "-" + handle : "") + m_Ending;
    }

private:
    static constexpr std::size_t kLongest = 200; // a file system takes 255
    static bool IsHarmless(char byte) { return byte != '/' && byte >= ' ' && byte != '\x7f'; }

    std::string m_Ending;
    std::set<std::string> m_Seen;
    std::set<std::string> m_Ambiguous;
};

bool HasRows(const Object& object)
{
    return object.kind == Kind::Table || object.kind == Kind::Array || object.kind == Kind::Stream;
}

const char* NpyElement(int type)
{
    switch (type)
    {
    case rfm_TypeInt: return "<i4";
    case rfm_TypeFloat: return "<f4";
    case rfm_TypeDouble: return "<f8";
    default: return nullptr;
    }
}

void RequireArrayOfNumbers(const DatabaseFile& file, const Object& object)
{
    const std::string name = fmt::format("{}: handle {}", OneLine(file.Path()), object.handle.Value());
    if (object.kind != Kind::Array)
        throw Failure(ExitUsage, name, "is no array", "--to csv or --to jsonl takes it");
    if (NpyElement(object.elementType) == nullptr)
        throw Failure(ExitUsage, name, "is an array of texts, for which npy has no place",
                      "--to csv or --to jsonl takes it");
}

// Among several objects those that the form has no place for are left out; one alone is refused with the reason.
std::vector<Selected> ExportCommand::Choose(DatabaseFile& file) const
{
    std::vector<Selected> chosen = Select(file, m_Objects);
    const auto isLeftOut = [&](const Selected& each)
    {
        const Object& object = each.object;
        if (!object.damage.empty()) return false;
        return Is("npy") ? NpyElement(object.elementType) == nullptr : !HasRows(object);
    };
    if (chosen.size() > 1 || m_Objects.empty()) std::erase_if(chosen, isLeftOut);
    if (chosen.empty())
        throw Failure(ExitMissing, OneLine(file.Path()), "there is no object for " + m_To,
                      "`rfm ls` lists the objects");
    for (const Selected& each : chosen)
    {
        if (!each.object.damage.empty())
            throw Failure(ExitUnreadable,
                          fmt::format("{}: handle {}", OneLine(file.Path()), each.object.handle.Value()),
                          each.object.damage, "`rfm check` tells what is damaged");
        if (Is("npy")) RequireArrayOfNumbers(file, each.object);
    }
    return chosen;
}

int ExportCommand::Run(Output& output)
{
    RequireFittingOptions();
    DatabaseFile file(m_File);
    if (Is("vtu")) return ExportMesh(file, output);
    const std::vector<Selected> chosen = Choose(file);
    TellOfSemaphore(file, "a change may be exported half done");
    const bool isFolder = chosen.size() > 1 || std::filesystem::is_directory(m_Out);
    if (!isFolder) return ExportOne(file, chosen.front(), output);
    if (m_Out.empty())
        throw Failure(
            ExitUsage, OneLine(m_File),
            fmt::format("{} objects are meant, and standard output has room for one", chosen.size()),
            "name one, or give a folder with -o");
    return ExportIntoFolder(file, chosen, output);
}

int ExportCommand::ExportOne(DatabaseFile& file, const Selected& selected, Output& output) const
{
    if (!m_Out.empty())
    {
        ExportToFile(file, selected, m_Out, output);
        return ExitDone;
    }
    QueriedRows rows(file, selected, m_Query);
    StandardTarget target(output);
    WriteRows(file, rows, target, nullptr);
    return ExitDone;
}

int ExportCommand::ExportIntoFolder(DatabaseFile& file, const std::vector<Selected>& chosen,
                                    Output& output) const
{
    std::error_code error;
    const bool isNew = std::filesystem::create_directory(m_Out, error);
    if (error == std::errc::file_exists) error = std::make_error_code(std::errc::not_a_directory);
    if (error)
        throw Failure(ExitOutput, OneLine(m_Out), error.message(),
                      fmt::format("{} objects need a folder", chosen.size()));
    try
    {
        const FileNames names(chosen, "." + m_To);
        for (const Selected& each : chosen)
            ExportToFile(file, each, m_Out + "/" + names.Of(each.object), output);
    }
    catch (...)
    {
        // Only without anything in it: files that are there are whole.
        if (isNew) std::filesystem::remove(m_Out, error);
        throw;
    }
    return ExitDone;
}

void ExportCommand::ExportToFile(DatabaseFile& file, const Selected& selected, const std::string& path,
                                 Output& output) const
{
    QueriedRows rows(file, selected, m_Query);
    NewFile out(path, m_Force, m_File);
    FileTarget target(out);
    std::int64_t count = 0;
    {
        Progress progress(selected.object.size);
        progress.Begin("exporting");
        count =
            Is("npy") ? WriteNumbers(file, rows, target, progress) : WriteRows(file, rows, target, &progress);
    }
    target.Close();
    out.Publish();
    output.Line(fmt::format("{}: {}", OneLine(path), Counted(count, "row", "rows")));
}

void AppendNumberOf(std::string& target, const Value& value)
{
    if (value.GetKind() == Value::Kind::Int) return AppendNumber(target, value.Int());
    if (value.GetKind() == Value::Kind::Float)
        return AppendNumber(target, static_cast<float>(value.Number()));
    AppendNumber(target, value.Number());
}

// The two forms of a row; names of columns are what they are before any row.
class CsvRows
{
public:
    explicit CsvRows(const std::vector<Column>& columns) : m_Columns(columns) {}
    void Head(std::string& target) const
    {
        for (std::size_t i = 0; i < m_Columns.size(); ++i)
        {
            if (i > 0) target += ',';
            AppendCsvCell(target, m_Columns[i].name);
        }
        target += '\n';
    }
    void Row(std::string& target, std::span<const Value> values) const
    {
        for (std::size_t i = 0; i < values.size(); ++i)
        {
            if (i > 0) target += ',';
            if (values[i].IsText())
                AppendCsvCell(target, values[i].Text());
            else if (!values[i].IsAbsent())
                AppendNumberOf(target, values[i]);
        }
        target += '\n';
    }

private:
    const std::vector<Column>& m_Columns;
};

class JsonRows
{
public:
    explicit JsonRows(const std::vector<Column>& columns)
    {
        for (const Column& column : columns) m_Keys.push_back(TextJson(column.name) + ":");
    }
    void Head(std::string&) const {}
    void Row(std::string& target, std::span<const Value> values) const
    {
        target += '{';
        for (std::size_t i = 0; i < values.size(); ++i)
        {
            if (i > 0) target += ',';
            target += m_Keys[i];
            target += JsonOf(values[i]);
        }
        target += "}\n";
    }

private:
    std::vector<std::string> m_Keys;
};

// Tells the progress how far the rows have come, now and then.
class RowProgress
{
public:
    RowProgress(Progress* progress, const Object& object)
        : m_Progress(progress),
          m_BytesBetweenLooks(object.rowBytes * kRowsBetweenLooks)
    {
    }
    void Step(std::int64_t rows)
    {
        if (m_Progress != nullptr && rows % kRowsBetweenLooks == 0) m_Progress->Advance(m_BytesBetweenLooks);
    }

private:
    Progress* m_Progress;
    std::int64_t m_BytesBetweenLooks;
};

template <class Form>
std::int64_t WriteRowsAs(const Form& form, QueriedRows& rows, ByteTarget& target, Progress* progress)
{
    RowProgress step(progress, rows.Object());
    std::int64_t count = 0;
    form.Head(target.Pending());
    while (!target.IsGone() && rows.Next())
    {
        form.Row(target.Pending(), std::span<const Value>(rows.Values()).subspan(1));
        target.FlushWhenFull();
        step.Step(++count);
    }
    return count;
}

std::int64_t ExportCommand::WriteRows(DatabaseFile& file, QueriedRows& rows, ByteTarget& target,
                                      Progress* progress) const
{
    std::vector<Column> columns = rows.Columns();
    columns.erase(columns.begin()); // the number of the row is no value of the object
    std::int64_t count = 0;
    ReadRows(file, rows,
             [&]
             {
                 count = Is("csv") ? WriteRowsAs(CsvRows(columns), rows, target, progress)
                                   : WriteRowsAs(JsonRows(columns), rows, target, progress);
             });
    return count;
}

void AppendElement(std::string& target, const Value& value)
{
    if (value.GetKind() == Value::Kind::Int)
        return AppendLittleEndian(target, static_cast<std::int32_t>(value.Int()));
    if (value.GetKind() == Value::Kind::Float)
        return AppendLittleEndian(target, static_cast<float>(value.Number()));
    AppendLittleEndian(target, value.Number());
}

// How many rows there are is known behind them: the header goes out twice.
std::int64_t ExportCommand::WriteNumbers(DatabaseFile& file, QueriedRows& rows, FileTarget& target,
                                         Progress& progress) const
{
    const Object& object = rows.Object();
    const char* element = NpyElement(object.elementType);
    const std::int64_t columns =
        object.rows.value_or(0) > 0 ? static_cast<std::int64_t>(rows.Fields().size()) : object.columns;
    RowProgress step(&progress, object);
    std::int64_t count = 0;
    target.Pending() += NpyHeader(element, 0, columns);
    const auto write = [&]
    {
        while (rows.Next())
        {
            for (const Value& value : std::span<const Value>(rows.Values()).subspan(1))
            {
                if (value.IsAbsent())
                    throw Failure(ExitUnreadable,
                                  fmt::format("{}: handle {}, row {}", OneLine(file.Path()),
                                              object.handle.Value(), rows.Source().Row()),
                                  "only a part of the row is there",
                                  fmt::format("--where 'row < {}' leaves it out", rows.Source().Row()));
                AppendElement(target.Pending(), value);
            }
            target.FlushWhenFull();
            step.Step(++count);
        }
    };
    ReadRows(file, rows, write);
    target.Rewrite(NpyHeader(element, count, columns));
    return count;
}

int ExportCommand::ExportMesh(DatabaseFile& file, Output& output) const
{
    const MeshMapping mapping = ReadMeshMapping(m_Mesh, m_Map);
    TellOfSemaphore(file, "a change may be exported half done");
    const VtuGrid grid = ReadMesh(file, mapping, m_Objects);
    NewFile out(m_Out, m_Force, m_File);
    FileTarget target(out);
    WriteVtu(grid, target);
    target.Close();
    out.Publish();
    output.Line(fmt::format("{}: {}, {}, data of {} and {}", OneLine(m_Out),
                            Counted(grid.points, "node", "nodes"), Counted(grid.cells, "element", "elements"),
                            grid.pointData.size(), grid.cellData.size()));
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeExport() { return std::make_unique<ExportCommand>(); }
} // namespace rfm_tool
