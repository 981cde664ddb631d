#include "convert.h"

#include "Text.h"
#include "VerifiedCopy.h"

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
    void Declare(Options& options) override
    {
        options.Add("IN", m_In, "a database").Required();
        options.Add("OUT", m_Out, "the new file").Required().NamesNewFile();
        DeclareKind(options, m_To, "plain, compressed or hdf5").Required();
        options.Add("-f,--force", m_Force, "replace OUT when it is there");
        m_Style.DeclareJson(options);
    }
    int Run(Output& output) override;

private:
    void Tell(Output& output, std::int64_t bytes) const;

    std::string m_In;
    std::string m_Out;
    std::string m_To;
    bool m_Force = false;
    StyleOptions m_Style;
};

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
    Tell(output, CopyVerified(m_In, m_Out, KindOfWord(m_To), m_Force));
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeConvert() { return std::make_unique<ConvertCommand>(); }
} // namespace rfm_tool
