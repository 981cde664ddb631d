#include "copy.h"

#include "Compaction.h"
#include "ContentHash.h"
#include "NewFile.h"
#include "RemoteDoor.h"
#include "Selection.h"
#include "Text.h"
#include "WriterWatch.h"

#include <fmt/format.h>

#include <algorithm>

namespace rfm_tool
{
namespace
{
class CopyCommand : public Command
{
public:
    std::string_view Name() const override { return "copy"; }
    std::string_view Summary() const override { return "selected objects into a new file"; }
    std::string_view Help() const override
    {
        return "Copies objects of the database IN into the new database OUT, with the layouts and texts "
               "that\n"
               "they need, under the handles that they have. OBJECT is a handle, the name of a table, or a\n"
               "glob. OUT is read back and compared, and gets its name when all is done: a run that is\n"
               "interrupted or fails leaves none.\n"
               "\n"
               "examples:\n"
               "  rfm copy job.rdx mesh.rdx NODES ELEMENTS\n"
               "  rfm copy job.rdx steps.h5 'STEP*' 0x20 --to hdf5\n"
               "  rfm copy job.rdx one.rdx 9 --force          replaces one.rdx\n";
    }
    void Declare(Options& options) override
    {
        options.Add("IN", m_In, "a database").Required();
        options.Add("OUT", m_Out, "the new file").Required().NamesNewFile();
        options.Add("OBJECT", m_Words, "what to copy").Required().ValueName("");
        DeclareKind(options, m_To, "plain, compressed or hdf5 (the kind of IN)");
        options.Add("-f,--force", m_Force, "replace OUT when it is there");
        m_Style.DeclareJson(options);
    }
    int Run(Output& output) override;

private:
    FileKind Kind() const { return m_To.empty() ? KindOfFile(m_In) : KindOfWord(m_To); }
    std::vector<Object> Choose(DatabaseFile& in) const;
    std::string WriteVerified(DatabaseFile& in, const std::vector<Object>& objects, const NewFile& out) const;
    void Tell(Output& output, const std::vector<Object>& objects, const std::string& hash) const;

    std::string m_In;
    std::string m_Out;
    std::vector<std::string> m_Words;
    std::string m_To;
    bool m_Force = false;
    StyleOptions m_Style;
};

// Ascending, as their handles are given out. The pools come along as far as they are needed, never by themselves.
std::vector<Object> CopyCommand::Choose(DatabaseFile& in) const
{
    std::vector<Object> objects;
    for (const Selected& selected : Select(in, m_Words))
    {
        const Object& object = selected.object;
        const std::string what = fmt::format("{}: handle {}", OneLine(m_In), object.handle.Value());
        if (selected.fields)
            throw Failure(ExitUsage, what, "single fields can't be copied", "give the table or array alone");
        if (object.kind == Kind::Strings || object.kind == Kind::Layouts || object.kind == Kind::Unused)
            throw Failure(ExitUsage, what, "is the library's own",
                          "texts and layouts come with what needs them");
        if (!object.damage.empty())
            throw Failure(ExitUnreadable, what, object.damage, "`rfm recover` saves what can still be read");
        objects.push_back(object);
    }
    std::sort(objects.begin(), objects.end(),
              [](const Object& left, const Object& right) { return left.handle < right.handle; });
    return objects;
}

std::string CopyCommand::WriteVerified(DatabaseFile& in, const std::vector<Object>& objects,
                                       const NewFile& out) const
{
    std::vector<rfm_Handle> handles;
    handles.reserve(objects.size());
    for (const Object& object : objects) handles.push_back(object.handle);
    WriteSelected(in, objects, Kind(), out.WorkPath());
    std::string hash = ContentHash(in, handles);
    DatabaseFile copy(out.WorkPath());
    if (ContentHash(copy) != hash) out.ThrowUnwritten("the copy has another content");
    return hash;
}

void CopyCommand::Tell(Output& output, const std::vector<Object>& objects, const std::string& hash) const
{
    const std::int64_t count = static_cast<std::int64_t>(objects.size());
    const std::int64_t bytes = BytesOnDisk(m_Out);
    const std::string_view to = KindWord(KindOfFile(m_Out));
    if (m_Style.json)
    {
        output.Write(
            fmt::format("{{\"rfm\":1,\"command\":\"copy\",\"file\":{},\"out\":{},\"to\":\"{}\",\"objects\":[",
                        TextJson(m_In), TextJson(m_Out), to));
        for (std::size_t i = 0; i < objects.size(); ++i)
            output.Write(fmt::format("{}{}", i == 0 ? "" : ",", objects[i].handle.Value()));
        return output.Line(fmt::format("],\"bytesAfter\":{},\"hash\":\"{}\"}}", bytes, hash));
    }
    output.Line(fmt::format("{}: {}, {}, {}; {}", OneLine(m_Out), to, Counted(count, "object", "objects"),
                            Counted(bytes, "byte", "bytes"), hash));
}

int CopyCommand::Run(Output& output)
{
    DatabaseFile in(m_In);
    TellOfSemaphore(in, "a change may be copied half done");
    const std::vector<Object> objects = Choose(in);
    const WriterWatch watch(m_In);
    NewFile out(m_Out, m_Force, m_In);
    std::string hash;
    WriteWatched(m_In, watch, out, [&] { hash = WriteVerified(in, objects, out); });
    out.Publish();
    Tell(output, objects, hash);
    return ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeCopy() { return std::make_unique<CopyCommand>(); }
} // namespace rfm_tool
