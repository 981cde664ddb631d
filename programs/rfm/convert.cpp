#include "convert.h"

#include "ByteCopy.h"
#include "DatabaseFile.h"
#include "FileKind.h"
#include "NewFile.h"
#include "Text.h"
#include "WriterWatch.h"
#include "omi_Swapper.h"
#include "rfm_FileRepr.h"
#include "rfm_HeaderFormat.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
class ConvertCommand : public Command
{
public:
    std::string_view Name() const override { return "convert"; }
    std::string_view Summary() const override { return "the same bytes in another kind of file"; }
    std::string_view Help() const override
    {
        return "Copies the database IN, byte for byte, into the new file OUT of another kind, or of the "
               "same, and\n"
               "reads it back to compare. OUT gets its name when all is done: a run that is interrupted or\n"
               "fails leaves none.\n"
               "\n"
               "examples:\n"
               "  rfm convert job.rdx job.sdx --to compressed\n"
               "  rfm convert job.sdx job.rdx --to plain --force     replaces job.rdx\n"
               "  rfm convert job.rdx job.h5 --to hdf5 && h5dump -H job.h5\n";
    }
    void Declare(CLI::App& app) override
    {
        app.add_option("IN", m_In, "a database")->required();
        app.add_option("OUT", m_Out, "the new file")->required();
        DeclareKind(app, m_To, "plain, compressed or hdf5");
        app.get_option("--to")->required();
        app.add_flag("-f,--force", m_Force, "replace OUT when it is there");
        m_Style.DeclareJson(app);
    }
    int Run(Output& output) override;

private:
    CopiedBytes Write(const rfm_File& source, const NewFile& out, Progress& progress) const;
    void CopyVerified(const NewFile& out) const;
    void Tell(Output& output, std::int64_t bytes) const;

    std::string m_In;
    std::string m_Out;
    std::string m_To;
    bool m_Force = false;
    StyleOptions m_Style;
};

// A plain file says in its header how large it is. Bytes that come from another kind of file say nothing there, or the
// size that a plain file had which they once were.
void StampSize(const std::string& path)
{
    const rfm_File file = rfm_File::Open(path.c_str(), utl_FileAccessUpdate);
    rfm_FileRepr& repr = file.Repr();
    char stamp[rfm_SizeStampBytes] = {};
    repr.Seek(rfm_SizeStampOffset);
    repr.Read(stamp, sizeof stamp);
    if (rfm_SizeStampAllows(stamp, repr.Swapped(), repr.MediumSize().Value())) return;
    repr.WriteSizeStamp(rfm_SizeStampOffset);
    repr.Flush();
}

CopiedBytes ConvertCommand::Write(const rfm_File& source, const NewFile& out, Progress& progress) const
{
    rfm_File target;
    try
    {
        target = CreateFileOfKind(KindOfWord(m_To), out.WorkPath());
        return CopyBytes(source, target, progress);
    }
    catch (...)
    {
        const QuietStandardError quiet;
        target = rfm_File();
        throw;
    }
}

void ConvertCommand::CopyVerified(const NewFile& out) const
{
    const rfm_File source = rfm_File::Open(m_In.c_str(), utl_FileAccessRead);
    Progress progress(2 * source.Repr().Length().Value());
    progress.Begin("copying");
    const CopiedBytes copied = Write(source, out, progress);
    progress.Begin("comparing");
    if (ReadBytes(rfm_File::Open(out.WorkPath().c_str(), utl_FileAccessRead), progress) != copied)
        out.ThrowUnwritten("reading it back gave other bytes than were written");
    if (KindOfWord(m_To) == FileKind::Plain) StampSize(out.WorkPath());
}

void ConvertCommand::Tell(Output& output, std::int64_t bytes) const
{
    const std::string_view from = KindWord(KindOfFile(m_In));
    const std::int64_t before = BytesOnDisk(m_In);
    const std::int64_t after = BytesOnDisk(m_Out);
    if (m_Style.json)
        return output.Line(fmt::format(
            "{{\"rfm\":1,\"command\":\"convert\",\"file\":{},\"out\":{},\"from\":\"{}\",\"to\":\"{}\","
            "\"bytes\":{},\"bytesBefore\":{},\"bytesAfter\":{}}}",
            TextJson(m_In), TextJson(m_Out), from, m_To, bytes, before, after));
    output.Line(fmt::format("{}: {}, {}; was {}, {}; read back and found equal", OneLine(m_Out), m_To,
                            Counted(after, "byte", "bytes"), from, Counted(before, "byte", "bytes")));
}

int ConvertCommand::Run(Output& output)
{
    const std::int64_t bytes = DatabaseFile(m_In).File().Repr().Length().Value();
    TellOfSemaphore(m_In, "a change may be copied half done");
    const WriterWatch watch(m_In);
    NewFile out(m_Out, m_Force, m_In);
    try
    {
        CopyVerified(out);
        watch.RequireRest();
        DatabaseFile{out.WorkPath()}; // what doesn't open is no copy
    }
    catch (const Failure&)
    {
        watch.RequireRest(); // a writer that closes cuts its reserve off the file: that is no damage
        throw;
    }
    catch (const nex_Exception& cause)
    {
        out.ThrowUnwritten(PlainMessage(cause.what()));
    }
    out.Publish();
    Tell(output, bytes);
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeConvert() { return std::make_unique<ConvertCommand>(); }
} // namespace rfm_tool
