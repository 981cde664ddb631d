#include "browse.h"

#include "RemoteDoor.h"
#include "Text.h"
#include "nex_Exception.h"

#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
class BrowseCommand : public Command
{
public:
    std::string_view Name() const override { return "browse"; }
    std::string_view Summary() const override { return "a folder on another host"; }
    std::string_view Help() const override
    {
        return "One line for each entry, by name: kind, size in bytes, time of the last change, name. Of a\n"
               "link all that is told of what it leads to. PATH is \"Network connectors/NAME/FOLDER\", "
               "where\n"
               "`rfm connect` has registered NAME, or the URL of a folder.\n"
               "\n"
               "examples:\n"
               "  rfm browse \"Network connectors/box1/\"\n"
               "  rfm browse \"Network connectors/box1/results\" --only databases\n"
               "  rfm browse mrkrdb://localhost//data --json | jq -r '.rows[][3]'\n";
    }
    void Declare(Options& options) override;
    int Run(Output& output) override;

private:
    rdb_FileFilterID Filter() const;
    std::vector<Column> Columns() const;
    std::vector<Cell> Cells(const rds_DirectoryEntity& entity) const;
    std::unique_ptr<cow_List<rds_DirectoryEntity>> Ask() const;

    std::string m_Path;
    bool m_HasHidden = false;
    std::string m_Only;
    bool m_IsLong = false;
    bool m_All = false;
    StyleOptions m_Style;
};

void BrowseCommand::Declare(Options& options)
{
    options.Add("PATH", m_Path, "a folder on another host").Required();
    options.Add("-a", m_HasHidden, "names that begin with a point too");
    options.Add("--only", m_Only, "databases: files named *.rdx, and folders; or folders alone")
        .ValueName("WHAT")
        .OneOf({"databases", "folders"})
        .Excludes("-a");
    options.Add("-l", m_IsLong, "rights, owner and group too");
    options.Add("--all", m_All, "all lines, on a terminal in a pager");
    m_Style.DeclareAll(options);
}

rdb_FileFilterID BrowseCommand::Filter() const
{
    if (m_Only == "databases") return rdb_FileFilterID::Databases;
    if (m_Only == "folders") return rdb_FileFilterID::Directories;
    return m_HasHidden ? rdb_FileFilterID::All : rdb_FileFilterID::Visible;
}

std::string_view KindWord(int kind)
{
    switch (kind)
    {
    case rds_DirectoryEntity::File: return "file";
    case rds_DirectoryEntity::Directory: return "folder";
    case rds_DirectoryEntity::Special: return "special";
    case rds_DirectoryEntity::DanglingLink: return "dangling link";
    default: return "unknown";
    }
}

std::vector<Column> BrowseCommand::Columns() const
{
    std::vector<Column> columns{{"kind", "string"}, {"size", "int", true}, {"time", "string"}};
    if (m_IsLong)
        for (const char* name : {"mode", "owner", "group"}) columns.push_back({name, "string"});
    columns.push_back({"name", "string"});
    return columns;
}

std::vector<Cell> BrowseCommand::Cells(const rds_DirectoryEntity& entity) const
{
    const bool isFile = entity.m_Kind == rds_DirectoryEntity::File;
    const bool isKnown = entity.m_Kind != rds_DirectoryEntity::Unknown;
    std::vector<Cell> cells{
        Cell::OfText(KindWord(entity.m_Kind)),
        isFile ? Cell::OfInt(static_cast<std::int64_t>(entity.m_Large)) : Cell::Absent(),
        isKnown ? Cell::OfText(UtcTime(entity.m_Word1)) : Cell::Absent(),
    };
    if (m_IsLong)
    {
        const int mode = entity.m_Short1 & 07777;
        cells.push_back(isKnown ? Cell::OfText(fmt::format("{:04o}", mode)) : Cell::Absent());
        cells.push_back(isKnown ? Cell::OfText(entity.m_Text1.View()) : Cell::Absent());
        cells.push_back(isKnown ? Cell::OfText(entity.m_Text2.View()) : Cell::Absent());
    }
    cells.push_back(Cell::OfText(entity.m_Name.View()));
    return cells;
}

std::unique_ptr<cow_List<rds_DirectoryEntity>> BrowseCommand::Ask() const
{
    const RemotePlace place = FindRemotePlace(m_Path);
    const std::unique_ptr<rds_CFileBrowsing> browser = OpenBrowser(m_Path, place);
    try
    {
        std::unique_ptr<cow_List<rds_DirectoryEntity>> list(
            browser->ListDir(cow_String(place.path), Filter(), rds_CFileBrowsing::AllAttributes));
        browser->Exit();
        return list;
    }
    catch (const nex_Exception& cause)
    {
        throw RemoteFailure(m_Path, cause);
    }
}

int BrowseCommand::Run(Output& output)
{
    if (!IsRemotePath(m_Path))
        throw Failure(ExitUsage, OneLine(m_Path), "is no place on another host",
                      "it is written \"Network connectors/NAME/FOLDER\" or mrkrdb://HOST:PORT//FOLDER");
    const std::unique_ptr<cow_List<rds_DirectoryEntity>> list = Ask();
    Screenful screenful(output, m_Style.Choose(output), m_All);
    Listing listing(output, m_Style.Choose(output), Columns(),
                    fmt::format("\"command\":\"browse\",\"path\":{},", TextJson(m_Path)));
    for (int i = list->Count() - 1; i >= 0; --i) // the list comes in reverse
        if (screenful.Takes()) listing.Row(Cells(list->ConstGet(i)));
    listing.Finish();
    screenful.TellTheRest();
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeBrowse() { return std::make_unique<BrowseCommand>(); }
} // namespace rfm_tool
