#include "WriterWatch.h"

#include "Failure.h"
#include "NewFile.h"
#include "RemoteDoor.h"
#include "SpaceBytes.h"
#include "Text.h"

namespace rfm_tool
{
namespace
{
// Opened anew at each look: some kinds of file keep what they read once.
std::uint32_t FlushCountOf(const std::string& path) { return FileImage(path).FlushCountNow(); }
} // namespace

WriterWatch::WriterWatch(const std::string& path) : m_Path(path), m_Before(FlushCountOf(path)) {}

void WriterWatch::RequireRest() const
{
    if (FlushCountOf(m_Path) != m_Before)
        throw Failure(ExitBusy, OneLine(m_Path), "its writer flushed while it was read",
                      "try again when the writer rests");
}

void WriteWatched(const std::string& in, const WriterWatch& watch, const NewFile& out,
                  const std::function<void()>& write)
{
    try
    {
        write();
        watch.RequireRest();
    }
    catch (const Failure& failure)
    {
        if (failure.Code() != ExitRemote) watch.RequireRest();
        throw;
    }
    catch (const nex_Exception& cause)
    {
        ThrowIfRemote(in, cause);
        out.ThrowUnwritten(PlainMessage(cause.what()));
    }
}
} // namespace rfm_tool
