#include "info.h"

#include "DatabaseFile.h"
#include "FileKind.h"
#include "Text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>

namespace rfm_tool
{
namespace
{
using Json = nlohmann::ordered_json;

struct Sums
{
    std::map<std::string, int> byType;
    std::int64_t inUse = 0;
    std::int64_t reserved = 0;
    int damaged = 0;
};

Sums SumUp(DatabaseFile& file)
{
    Sums sums;
    for (const rfm_Handle handle : file.Handles())
    {
        const Object object = file.Describe(handle);
        sums.inUse += object.size;
        sums.reserved += object.allocation;
        if (!object.damage.empty()) ++sums.damaged;
        const bool isOwn =
            object.kind != Kind::Strings && object.kind != Kind::Layouts && object.kind != Kind::Unused;
        if (isOwn) ++sums.byType[PluralWord(object.kind)];
    }
    return sums;
}

std::string ObjectsText(const Sums& sums)
{
    std::string text;
    for (const auto& [word, count] : sums.byType)
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count,
                            count == 1 ? word.substr(0, word.size() - 1) : word);
    if (sums.damaged > 0) text += fmt::format("{}{} damaged", text.empty() ? "" : ", ", sums.damaged);
    return text.empty() ? "none" : text;
}

std::string SemaphoreText(const Semaphore& semaphore)
{
    if (!semaphore.isPresent) return "none";
    if (semaphore.path.empty()) return "a writer asks readers to wait, or died doing so";
    return fmt::format("{} since {}: a writer asks readers to wait, or died doing so",
                       OneLine(semaphore.path), UtcTime(semaphore.since));
}

// "Block 0 Size (bytes)=1024" as name and number.
std::pair<std::string, std::int64_t> Statistic(const cow_String& line)
{
    const std::string text = line.CString();
    const std::size_t sign = text.rfind('=');
    return {text.substr(0, sign), std::stoll(text.substr(sign + 1))};
}

class InfoCommand : public Command
{
public:
    std::string_view Name() const override { return "info"; }
    std::string_view Summary() const override { return "what a database is and holds, on one page"; }
    std::string_view Help() const override
    {
        return "Kind of file, sizes, application, description, time of creation, flush count, objects by\n"
               "type, the library's own statistics, and whether a writer asks readers to wait.\n"
               "\n"
               "examples:\n"
               "  rfm info job.rdx\n"
               "  rfm job.rdx                             the same\n"
               "  rfm info job.rdx --json | jq .flushes\n";
    }
    void Declare(Options& options) override
    {
        DeclareFile(options, m_File);
        m_Style.DeclareJson(options);
    }
    int Run(Output& output) override;

private:
    static void WriteText(Output& output, const Json& facts, const Sums& sums, const Semaphore& semaphore,
                          DatabaseFile& file);

    std::string m_File;
    StyleOptions m_Style;
};

Json Facts(DatabaseFile& file, const Sums& sums, const Semaphore& semaphore)
{
    rfm_Database& database = file.Database();
    const Header header = file.Header();
    Json facts;
    facts["rfm"] = 1;
    facts["command"] = "info";
    facts["file"] = Json::parse(TextJson(file.Path()));
    facts["kind"] = KindWord(KindOfFile(file.Path()));
    facts["version"] = header.version;
    facts["application"] = Json::parse(TextJson(header.mark));
    facts["description"] = Json::parse(TextJson(database.Description().View()));
    facts["created"] = rfm_Database::GetCreationTime(file.File());
    facts["flushes"] = static_cast<std::uint32_t>(database.GetFlushCount());
    facts["bytes"] = file.FileBytes();
    facts["bytesReserved"] = sums.reserved;
    facts["bytesInUse"] = sums.inUse;
    facts["objects"] = sums.byType;
    facts["objectsDamaged"] = sums.damaged;
    facts["layouts"] = database.GetTableMetadataNames().Count();
    facts["semaphore"] = semaphore.isPresent
                             ? Json::parse(TextJson(semaphore.path.empty() ? "remote" : semaphore.path))
                             : Json();
    Json statistics;
    for (const cow_String& line : database.GetDBStatistics())
    {
        const auto [name, number] = Statistic(line);
        statistics[name] = number;
    }
    facts["statistics"] = statistics;
    return facts;
}

void InfoCommand::WriteText(Output& output, const Json& facts, const Sums& sums, const Semaphore& semaphore,
                            DatabaseFile& file)
{
    rfm_Database& database = file.Database();
    const auto line = [&](std::string_view name, const std::string& value)
    {
        output.Line(output.IsTerminal() ? fmt::format("{:<13}{}", name, value)
                                        : fmt::format("{}\t{}", name, value));
    };
    const std::int64_t created = facts["created"];
    line("file", OneLine(file.Path()));
    line("kind", fmt::format("{} database, version {}", facts["kind"].get<std::string>(),
                             facts["version"].get<int>()));
    line("application", OneLine(file.Header().mark));
    line("description", OneLine(database.Description().View()));
    line("created", created == 0 ? "unknown" : fmt::format("{} ({})", UtcTime(created), created));
    line("flushes", fmt::format("{}", facts["flushes"].get<std::uint32_t>()));
    line("size", fmt::format("{} bytes; objects use {} of the {} that they reserve",
                             facts["bytes"].get<std::int64_t>(), sums.inUse, sums.reserved));
    line("objects", ObjectsText(sums));
    line("layouts", fmt::format("{}", facts["layouts"].get<int>()));
    line("semaphore", SemaphoreText(semaphore));
    for (const cow_String& statistic : database.GetDBStatistics())
    {
        const auto [name, number] = Statistic(statistic);
        line("statistics", fmt::format("{}: {}", name, number));
    }
}

int InfoCommand::Run(Output& output)
{
    DatabaseFile file(m_File);
    const Sums sums = SumUp(file);
    const Semaphore semaphore = LookAtSemaphore(file);
    const Json facts = Facts(file, sums, semaphore);
    if (m_Style.json)
        output.Line(facts.dump(2));
    else
        WriteText(output, facts, sums, semaphore, file);
    if (sums.damaged == 0) return ExitDone;
    Note(fmt::format("{}: {}; `rfm check` tells what is damaged", OneLine(m_File),
                     Counted(sums.damaged, "object can't be described", "objects can't be described")));
    return ExitNo;
}
} // namespace

std::unique_ptr<Command> MakeInfo() { return std::make_unique<InfoCommand>(); }
} // namespace rfm_tool
