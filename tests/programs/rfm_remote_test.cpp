// Databases on other hosts, as the commands of the tool see them: by the URL of a file of this host, and through a
// connection with the real relay and daemon.
#include "NewFiles.h"
#include "RemoteToolScene.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace
{
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class RfmRemote : public RemoteToolScene
{
protected:
    std::string Out() const { return Path("out.rdx"); }
    // Every name of the file as the path of the file.
    std::string AsFile(std::string text, const std::string& name) const
    {
        for (std::size_t place = text.find(name); place != std::string::npos;
             place = text.find(name, place + kJob().size()))
            text.replace(place, name.size(), kJob());
        return text;
    }
    void ExpectSameAsOfTheFile(const CommandLine& command, const std::string& name)
    {
        const ChildResult there = Run(WordsOf(command, name, Out()));
        const ChildResult here = Run(WordsOf(command, kJob(), Out()));
        EXPECT_EQ(there.code, here.code) << command.name;
        EXPECT_EQ(AsFile(there.out, name), here.out) << command.name;
        EXPECT_EQ(AsFile(there.err, name), here.err) << command.name;
    }
    static std::string LineOf(BoundedChild& child)
    {
        std::string line;
        for (std::string byte = child.Read(1); !byte.empty() && byte != "\n"; byte = child.Read(1))
            line += byte;
        return line;
    }
    static void SetTime(const std::string& path, std::time_t seconds)
    {
        const timespec times[] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    // A folder with one of each: job.rdx of 7 bytes, .hidden, a text, a folder, a FIFO and a link that leads nowhere.
    void MakeFolder() const
    {
        const std::string folder = Path("folder");
        std::filesystem::create_directories(folder + "/sub");
        WriteFile(folder + "/job.rdx", "7 bytes");
        WriteFile(folder + "/.hidden", "");
        WriteFile(folder + "/a\tb.txt", "text");
        ::mkfifo((folder + "/queue").c_str(), 0600);
        std::filesystem::create_symlink("nowhere", folder + "/stray");
        for (const char* name : {"sub", "job.rdx", ".hidden", "a\tb.txt", "queue", "stray"})
            SetTime(folder + "/" + name, 1700000000);
    }
};

constexpr const char* kThen = "2023-11-14 22:13:20 UTC";
} // namespace

// --- reading ---

TEST_F(RfmRemote, EveryCommandSaysOfAUrlWhatItSaysOfTheFile)
{
    for (const CommandLine& command : kCommandLines)
        if (!command.MakesFile()) ExpectSameAsOfTheFile(command, LocalUrl(kJob()));
}

TEST_F(RfmRemote, CommandsSayOfAConnectorPathWhatTheySayOfTheFile)
{
    AddAndStart();
    for (const CommandLine& command : kCommandLines)
        if (std::string_view("info ls rows hash check").find(command.name) != std::string_view::npos)
            ExpectSameAsOfTheFile(command, Connector());
}

TEST_F(RfmRemote, AUrlAloneIsAskedForItsInformation)
{
    EXPECT_EQ(Run({LocalUrl(kJob())}).out, Run({"info", LocalUrl(kJob())}).out);
}

TEST_F(RfmRemote, CompressedAndHdf5FilesAreReadThereAsPlainOnes)
{
    const std::string hash = Run({"hash", kJob()}).out;
    for (const std::string kind : {"compressed", "hdf5"})
    {
        ASSERT_EQ(Run({"convert", kJob(), Path("data/other"), "--to", kind, "--force"}).code, 0);
        EXPECT_EQ(Run({"hash", LocalUrl(Path("data/other"))}).out, hash) << kind;
        EXPECT_THAT(Run({"info", LocalUrl(Path("data/other"))}).out, HasSubstr("kind\tplain database"))
            << kind;
    }
}

TEST_F(RfmRemote, ConvertAndCompactTakeAUrl)
{
    const std::string hash = Run({"hash", kJob()}).out;
    for (const Words& words : {Words{"convert", LocalUrl(kJob()), Out(), "--to", "plain", "--force"},
                               Words{"compact", LocalUrl(kJob()), Out(), "--force"}})
    {
        const ChildResult result = Run(words);
        EXPECT_EQ(result.code, 0) << result.err;
        EXPECT_THAT(result.out,
                    HasSubstr("; was plain, " + std::to_string(std::filesystem::file_size(kJob()))));
        EXPECT_EQ(Run({"hash", Out()}).out, hash);
    }
}

TEST_F(RfmRemote, FollowTellsOfAFlushThere)
{
    AddAndStart();
    BoundedChild follow(ToolWords({"follow", Connector()}));
    EXPECT_THAT(LineOf(follow), StartsWith("open\tflush "));
    {
        rfm_Database database =
            rfm_Database::Open(rfm_File::Open(cow_String(kJob()), utl_FileAccessUpdate), "");
        auto pairs = database.ArrayDouble(rfm_Handle(6), -1, 0);
        pairs.Seek(3);
        const double values[] = {7, 8};
        pairs.Write(values, 1);
        pairs.Flush();
        database.Flush();
        const std::string line = LineOf(follow);
        EXPECT_THAT(line, StartsWith("flush\t"));
        EXPECT_THAT(line, HasSubstr("\tlag unknown\tdouble array (6) +1 row"));
    }
    ::kill(follow.Process(), SIGINT);
    EXPECT_EQ(follow.Finish().code, 130);
}

TEST_F(RfmRemote, FollowEndsWhenTheDaemonIsGone)
{
    AddAndStart();
    BoundedChild follow(ToolWords({"follow", Connector()}));
    EXPECT_THAT(LineOf(follow), StartsWith("open\tflush "));
    for (const SeenProcess& each : Descendants())
        if (each.process != follow.Process() && each.parent != follow.Process())
            ::kill(each.process, SIGKILL);
    const ChildResult result = follow.Finish();
    EXPECT_EQ(result.code, 6);
    EXPECT_THAT(result.err, StartsWith("rfm: " + Connector() + ": Lost connection to remote file, reason: "));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
}

TEST_F(RfmRemote, UnlockIsForTheHostOfTheFile)
{
    ExpectFailure({"unlock", LocalUrl(kJob())}, 2,
                  LocalUrl(kJob()) +
                      ": a semaphore is removed on its own host; log in there and run `rfm unlock`");
}

TEST_F(RfmRemote, ASemaphoreThereIsToldOf)
{
    std::filesystem::create_directory(Path("data/job.lsm"));
    EXPECT_EQ(Run({"hash", LocalUrl(kJob())}).err,
              "rfm: " + LocalUrl(kJob()) + ": a writer asks readers to wait; a change may enter half done\n");
    EXPECT_EQ(Run({"export", LocalUrl(kJob()), "4", "--to", "csv", "-o", Path("nodes.csv")}).err,
              "rfm: " + LocalUrl(kJob()) +
                  ": a writer asks readers to wait; a change may be exported half done\n");
    EXPECT_EQ(Run({"plot", LocalUrl(kJob()), "4.x"}).err,
              "rfm: " + LocalUrl(kJob()) +
                  ": a writer asks readers to wait; a change may be drawn half done\n");
    EXPECT_THAT(Run({"info", LocalUrl(kJob())}).out,
                HasSubstr("semaphore\ta writer asks readers to wait, or died doing so\n"));
}

TEST_F(RfmRemote, HelpSaysWhatEachCommandDoesThenThreeExamples)
{
    for (const std::string command : {"connect", "browse", "get"})
    {
        const std::string help = Run({command, "--help"}).out;
        EXPECT_THAT(help, StartsWith("rfm " + command + ": "));
        EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 40) << help;
        const std::size_t examples = help.find("examples:");
        const std::string shown = help.substr(examples, help.find("usage: rfm " + command + " ") - examples);
        EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 5) << shown;
    }
}

// --- what can't be read ---

TEST_F(RfmRemote, WhatTheAssistantRefusesIsToldInItsWords)
{
    const std::string cant = "Can't connect to remote file, reason: assistant, ";
    ExpectFailure({"ls", LocalUrl(Path("none.rdx"))}, 6,
                  LocalUrl(Path("none.rdx")) + ": " + cant + "no such file: " + Path("none.rdx") +
                      "; `rfm browse` lists what is there");
    ExpectFailure({"ls", LocalUrl(Path("data"))}, 6,
                  LocalUrl(Path("data")) + ": " + cant + "not a regular file: " + Path("data") +
                      "; `rfm browse` lists a folder");
}

TEST_F(RfmRemote, WhatIsNoDatabaseThereIsToldAsHere)
{
    WriteFile(Path("data/empty"), "");
    WriteFile(Path("data/text"), "a text of somebody");
    for (const std::string name : {"empty", "text"})
    {
        const std::string file = Path("data/" + name);
        const ChildResult there = Run({"info", LocalUrl(file)});
        const ChildResult here = Run({"info", file});
        EXPECT_EQ(there.code, 4);
        EXPECT_EQ(there.err, "rfm: " + LocalUrl(file) + here.err.substr(5 + file.size()));
    }
}

TEST_F(RfmRemote, DamageThereIsMendedThere)
{
    const std::string file = Path("data/damaged.rdx");
    WriteFile(file, ReadFile(RFM_TEST_DATA "/compressed.rdx"));
    std::filesystem::resize_file(file, 20480);
    const ChildResult there = Run({"info", LocalUrl(file)});
    EXPECT_EQ(there.code, 6);
    EXPECT_THAT(there.err, StartsWith("rfm: " + LocalUrl(file) + ": "));
    EXPECT_THAT(
        there.err,
        testing::EndsWith("reason: assistant, ***ERROR: VDX database is corrupt; `rfm check` on that host "
                          "tells what is damaged, `rfm recover` there saves what is sound\n"));
    EXPECT_EQ(Run({"check", file}).code, 1);
}

TEST_F(RfmRemote, ProgramsThatAreMissingHereAreNamed)
{
    AddAndStart();
    Set("MRL_PATH", Path("temp").c_str());
    const std::string relay =
        "; `export MRL_PATH=PREFIX/libexec/rfm`, where PREFIX is /usr for the package; `rfm doctor` looks";
    ExpectFailure({"info", Connector()}, 6,
                  Connector() + ": Can't connect to remote file, reason: Cannot locate qlnsrv executable" +
                      relay);
    ExpectFailure({"browse", Connector("")}, 6, Connector("") + ": Cannot locate qlnsrv executable" + relay);
    ExpectFailure({"connect", "ping", "box1"}, 6, "box1: Can't locate qlnsrv executable" + relay);
    Set("PATH", "/nowhere");
    ExpectFailure({"info", LocalUrl(kJob())}, 6,
                  LocalUrl(kJob()) +
                      ": Can't connect to remote file, reason: Cannot locate rfmT_FileAssistant "
                      "executable; put the folder of rfmT_FileAssistant into PATH");
    ExpectFailure({"browse", LocalUrl(Path("data"))}, 6,
                  LocalUrl(Path("data")) + ": Cannot locate rdsT_FileBrowsing executable; put the folder of "
                                           "rdsT_FileBrowsing into PATH");
}

TEST_F(RfmRemote, UrlsThatLeadNowhereAreToldBeforeAnythingIsStarted)
{
    const std::string url = "mrkrdb://hpc7:40001//data/job.rdx";
    ExpectFailure({"info", url}, 6,
                  url + ": no connection has the host hpc7 and the port 40001; `rfm connect list` shows the "
                        "connections, `rfm connect start` starts a server");
    ExpectFailure(
        {"info", "mrkrdb://hpc7//data/job.rdx"}, 2,
        "mrkrdb://hpc7//data/job.rdx: only a URL of localhost has no port; `rfm connect list` shows the "
        "ports of servers");
    for (const std::string bare : {"mrkrdb://", "mrkrdb://hpc7:40001", "mrkrdb:///data/job.rdx"})
        ExpectFailure({"info", bare}, 2,
                      bare +
                          ": a URL has a host and a path; it is written mrkrdb://HOST:PORT//folder/job.rdx");
}

TEST_F(RfmRemote, ADaemonThatHasGoneIsToldWithWhatStartsAnother)
{
    AddAndStart();
    KillDaemon();
    const std::string why =
        "reason: qlnsrv, cannot connect to 127.0.0.1 port " + std::to_string(m_Port) +
        ": Connection refused; `rfm connect start` starts a server; a firewall may want a --port";
    ExpectFailure({"info", Connector()}, 6, Connector() + ": Can't connect to remote file, " + why);
    ExpectFailure({"browse", Connector("")}, 6,
                  Connector("") + ": Can't establish connection to remote server: " + why);
}

TEST_F(RfmRemote, AServerOfAnotherKeyIsToldOf)
{
    AddAndStart();
    KillDaemon();
    StartDaemon({"-port", std::to_string(m_Port)});
    EXPECT_THAT(
        Run({"info", Connector()}).err,
        HasSubstr("qlnsrv, the key is not the one of the qlnsrvd there; another server has the port: `rfm "
                  "connect start` starts one of your own\n"));
}

// --- browse ---

TEST_F(RfmRemote, BrowseListsAFolderByName)
{
    MakeFolder();
    const std::string then = std::string("\t") + kThen + "\t";
    EXPECT_EQ(Run({"browse", LocalUrl(Path("folder"))}).out,
              "kind\tsize\ttime\tname\nfile\t4" + then + "a\\tb.txt\nfile\t7" + then + "job.rdx\nspecial\t" +
                  then + "queue\ndangling link\t" + then + "stray\nfolder\t" + then + "sub\n");
    EXPECT_EQ(Run({"browse", LocalUrl(Path("folder")), "--only", "databases"}).out,
              "kind\tsize\ttime\tname\nfile\t7" + then + "job.rdx\nfolder\t" + then + "sub\n");
    EXPECT_EQ(Run({"browse", LocalUrl(Path("folder")), "--only", "folders"}).out,
              "kind\tsize\ttime\tname\nfolder\t" + then + "sub\n");
    EXPECT_THAT(Run({"browse", LocalUrl(Path("folder")), "-a"}).out, HasSubstr("\t0" + then + ".hidden\n"));
    EXPECT_THAT(Run({"browse", LocalUrl(Path("folder")), "-l"}).out,
                StartsWith("kind\tsize\ttime\tmode\towner\tgroup\tname\nfile\t4" + then + "0644\t"));
}

TEST_F(RfmRemote, BrowseGoesThroughAConnection)
{
    MakeFolder();
    AddAndStart();
    EXPECT_THAT(Run({"browse", Connector("")}).out, HasSubstr("\tjob.rdx\n"));
    const std::string folder = Run({"browse", LocalUrl(Path("folder"))}).out;
    EXPECT_EQ(Run({"browse", Connector("../folder")}).out, folder);
    EXPECT_EQ(Run({"browse", Url(Path("folder"))}).out, folder);
}

TEST_F(RfmRemote, BrowseInJsonHasTheShapeOfTheManual)
{
    MakeFolder();
    EXPECT_EQ(
        Run({"browse", LocalUrl(Path("folder")), "--only", "databases", "--json"}).out,
        "{\"rfm\":1,\"command\":\"browse\",\"path\":\"" + LocalUrl(Path("folder")) +
            "\",\"columns\":[{\"name\":\"kind\",\"type\":\"string\"},{\"name\":\"size\",\"type\":\"int\"},"
            "{\"name\":\"time\",\"type\":\"string\"},{\"name\":\"name\",\"type\":\"string\"}],\"rows\":[\n"
            "[\"file\",7,\"" +
            kThen + "\",\"job.rdx\"],\n[\"folder\",null,\"" + kThen + "\",\"sub\"]\n]}\n");
}

TEST_F(RfmRemote, OnATerminalBrowseShowsOneScreen)
{
    std::filesystem::create_directory(Path("many"));
    for (int i = 10; i < 40; ++i) WriteFile(Path("many/f") + std::to_string(i), "");
    const std::string screen = Tool::RunOnTerminal({"browse", LocalUrl(Path("many"))}, 12, 80).out;
    EXPECT_THAT(screen, StartsWith("kind  size  time                     name\r\n"));
    EXPECT_THAT(screen, HasSubstr(" f10\r\n"));
    EXPECT_THAT(screen, testing::Not(HasSubstr(" f39\r\n")));
    EXPECT_THAT(Tool::RunOnTerminal({"browse", LocalUrl(Path("many")), "--all"}, 12, 80).out,
                HasSubstr(" f39\r\n"));
}

TEST_F(RfmRemote, WhatBrowseCantListIsToldInTheWordsOfTheOtherHost)
{
    const std::string none = LocalUrl(Path("none"));
    ExpectFailure(
        {"browse", none}, 6,
        none + ": Can't list directory " + Path("none") +
            ", reason: No such file or directory; `rfm browse` on the folder above lists what is there");
    ExpectFailure({"browse", LocalUrl(kJob())}, 6,
                  LocalUrl(kJob()) + ": Can't list directory " + kJob() +
                      ", reason: Not a directory; `rfm info` looks at a database");
    ExpectFailure({"browse", Path("data")}, 2,
                  Path("data") +
                      ": is no place on another host; it is written \"Network connectors/NAME/FOLDER\" or "
                      "mrkrdb://HOST:PORT//FOLDER");
    ExpectFailure({"browse", LocalUrl(Path("data")), "--only", "rdx"}, 2,
                  "browse: --only: rdx is not databases or folders; `rfm browse --help` shows how");
    EXPECT_EQ(Run({"browse", LocalUrl(Path("data"))}, "/dev/full").code, 7);
}

// --- get ---

TEST_F(RfmRemote, GetBringsTheBytesOfTheFile)
{
    AddAndStart();
    const std::string bytes = std::to_string(std::filesystem::file_size(kJob()));
    EXPECT_EQ(Run({"get", Connector(), Out()}).out,
              Out() + ": " + bytes + " bytes; read back and found equal\n");
    EXPECT_EQ(FileText(Out()), FileText(kJob()));
    EXPECT_EQ(Run({"get", Url(kJob()), Out(), "--force", "--json"}).out,
              "{\"rfm\":1,\"command\":\"get\",\"file\":\"" + Url(kJob()) + "\",\"out\":\"" + Out() +
                  "\",\"bytes\":" + bytes + "}\n");
    EXPECT_EQ(Run({"get", LocalUrl(kJob()), Path("second.rdx")}, "/dev/full").code, 7);
}

TEST_F(RfmRemote, GetRefusesWhatItCantDo)
{
    MakeSample(Out());
    const std::string before = FileText(Out());
    ExpectFailure({"get", LocalUrl(kJob()), Out()}, 2, Out() + ": is there already; --force replaces it");
    ExpectFailure({"get", LocalUrl(Path("none.rdx")), Out(), "--force"}, 6,
                  LocalUrl(Path("none.rdx")) +
                      ": Can't connect to remote file, reason: assistant, no such file: " + Path("none.rdx") +
                      "; `rfm browse` lists what is there");
    ExpectFailure({"get", kJob(), Out(), "--force"}, 2,
                  kJob() + ": is no place on another host; `rfm convert` copies files of this one");
    EXPECT_EQ(FileText(Out()), before);
}

TEST_F(RfmRemote, AnOutputThatTakesNothingIsToldAndAReaderThatHasLeftIsNot)
{
    MakeFolder();
    for (const Words& words :
         {Words{"browse", LocalUrl(Path("folder"))}, Words{"get", LocalUrl(kJob()), Out(), "--force"}})
    {
        const ChildResult full = Run(words, "/dev/full");
        EXPECT_EQ(full.code, 7);
        EXPECT_EQ(full.err,
                  "rfm: standard output: No space left on device; make room or write elsewhere, what "
                  "came out is cut off\n");
        BoundedChild unread(ToolWords(words));
        unread.CloseOutput();
        const ChildResult left = unread.Finish();
        EXPECT_EQ(left.code, 0);
        EXPECT_EQ(left.err, "");
    }
}

TEST_F(RfmRemote, AnInterruptedGetLeavesNothing)
{
    MakeEndless(Path("data/endless.rdx"));
    std::filesystem::create_directory(Path("here"));
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    {
        const FolderWatch watch(Path("here"));
        BoundedChild get(ToolWords({"get", LocalUrl(Path("data/endless.rdx")), Path("here/job.rdx")}));
        watch.WaitForAWrite();
        ::kill(get.Process(), signal);
        EXPECT_EQ(get.Finish().code, signal == SIGINT ? 130 : 128 + signal);
        EXPECT_TRUE(std::filesystem::is_empty(Path("here")));
        EXPECT_TRUE(std::filesystem::is_empty(Path("temp")));
    }
}

TEST_F(RfmRemote, AGetThatLosesTheOtherHostLeavesNothing)
{
    const std::string url = LocalUrl(Path("data/endless.rdx"));
    MakeEndless(Path("data/endless.rdx"));
    std::filesystem::create_directory(Path("here"));
    const FolderWatch watch(Path("here"));
    BoundedChild get(ToolWords({"get", url, Path("here/job.rdx")}));
    watch.WaitForAWrite();
    for (const SeenProcess& each : Descendants())
        if (each.parent == get.Process()) ::kill(each.process, SIGKILL);
    const ChildResult result = get.Finish();
    EXPECT_EQ(result.code, 6);
    EXPECT_EQ(result.err, "rfm: " + url +
                              ": Lost connection to remote file, reason: Can't be determined; `rfm help "
                              "remote` tells what it takes\n");
    EXPECT_TRUE(std::filesystem::is_empty(Path("here")));
}

TEST_F(RfmRemote, OnATerminalGetShowsHowFarItIs)
{
    MakeEndless(Path("data/endless.rdx"));
    const ToolResult result =
        Tool::RunOnTerminalUntil({"get", LocalUrl(Path("data/endless.rdx")), Out()}, " MB/s  ", SIGINT);
    EXPECT_EQ(result.code, 130);
    EXPECT_THAT(result.out, HasSubstr("copying  [.........."));
    EXPECT_FALSE(std::filesystem::exists(Out()));
}
