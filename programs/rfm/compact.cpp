#include "compact.h"

#include "Compaction.h"
#include "ContentHash.h"
#include "DamageList.h"
#include "FileWalk.h"
#include "NewFile.h"
#include "RemoteDoor.h"
#include "Text.h"
#include "WriterWatch.h"

#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
class CompactCommand : public Command
{
public:
    std::string_view Name() const override { return "compact"; }
    std::string_view Summary() const override { return "the same content in a new file, nothing to spare"; }
    std::string_view Help() const override
    {
        return "Copies each object of the database IN anew into OUT: in one piece, without unused room and "
               "texts\n"
               "that nothing refers to. Handles stay. OUT is of IN's kind, unless --to says otherwise. It "
               "gets its\n"
               "name when `rfm hash` finds the same content in it: a run that is interrupted or fails leaves "
               "none.\n"
               "\n"
               "examples:\n"
               "  rfm compact job.rdx small.rdx\n"
               "  rfm compact job.rdx job.sdx --to compressed\n"
               "  rfm compact job.rdx new.rdx && mv new.rdx job.rdx\n";
    }
    void Declare(Options& options) override
    {
        options.Add("IN", m_In, "a database").Required();
        options.Add("OUT", m_Out, "the new file").Required().NamesNewFile();
        DeclareKind(options, m_To, "plain, compressed or hdf5 (the kind of IN)");
        options.Add("-f,--force", m_Force, "replace OUT when it is there");
        m_Style.DeclareJson(options);
    }
    int Run(Output& output) override;

private:
    FileKind Kind() const { return m_To.empty() ? KindOfFile(m_In) : KindOfWord(m_To); }
    void RequireSound() const;
    std::string WriteVerified(DatabaseFile& in, const NewFile& out) const;
    void Tell(Output& output, const std::string& hash) const;

    std::string m_In;
    std::string m_Out;
    std::string m_To;
    bool m_Force = false;
    StyleOptions m_Style;
};

// A copy of what is damaged would look sound.
void CompactCommand::RequireSound() const
{
    FileImage image(m_In);
    DamageList damages(0);
    FileWalk(image, damages).Run();
    if (damages.Count() > 0)
        throw Failure(ExitUnreadable, OneLine(m_In), Counted(damages.Count(), "damage", "damages"),
                      "`rfm check` tells what is damaged");
}

std::string CompactCommand::WriteVerified(DatabaseFile& in, const NewFile& out) const
{
    WriteCompacted(in, Kind(), out.WorkPath());
    std::string hash = ContentHash(in);
    DatabaseFile copy(out.WorkPath());
    if (ContentHash(copy) != hash) out.ThrowUnwritten("the copy has another content");
    return hash;
}

void CompactCommand::Tell(Output& output, const std::string& hash) const
{
    const std::int64_t before = BytesOnDisk(m_In);
    const std::int64_t after = BytesOnDisk(m_Out);
    const std::string_view from = KindWord(KindOfFile(m_In));
    const std::string_view to = KindWord(KindOfFile(m_Out));
    if (m_Style.json)
        return output.Line(fmt::format(
            "{{\"rfm\":1,\"command\":\"compact\",\"file\":{},\"out\":{},\"from\":\"{}\",\"to\":\"{}\","
            "\"bytesBefore\":{},\"bytesAfter\":{},\"hash\":\"{}\"}}",
            TextJson(m_In), TextJson(m_Out), from, to, before, after, hash));
    output.Line(fmt::format("{}: {}, {}; was {}, {}; {}", OneLine(m_Out), to, Counted(after, "byte", "bytes"),
                            from, Counted(before, "byte", "bytes"), hash));
}

int CompactCommand::Run(Output& output)
{
    DatabaseFile in(m_In);
    TellOfSemaphore(in, "a change may be copied half done");
    const WriterWatch watch(m_In);
    NewFile out(m_Out, m_Force, m_In);
    RequireSound();
    std::string hash;
    WriteWatched(m_In, watch, out, [&] { hash = WriteVerified(in, out); });
    out.Publish();
    Tell(output, hash);
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeCompact() { return std::make_unique<CompactCommand>(); }
} // namespace rfm_tool
