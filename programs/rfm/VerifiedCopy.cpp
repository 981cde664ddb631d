#include "VerifiedCopy.h"

#include "ByteCopy.h"
#include "DatabaseFile.h"
#include "Failure.h"
#include "NewFile.h"
#include "RemoteDoor.h"
#include "Text.h"
#include "WriterWatch.h"
#include "omi_Swapper.h"
#include "rfm_FileRepr.h"
#include "rfm_HeaderFormat.h"

namespace rfm_tool
{
namespace
{
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

CopiedBytes Write(const rfm_File& source, FileKind kind, const NewFile& out, Progress& progress)
{
    rfm_File target;
    try
    {
        target = CreateFileOfKind(kind, out.WorkPath());
        return CopyBytes(source, target, progress);
    }
    catch (...)
    {
        const QuietStandardError quiet;
        target = rfm_File();
        throw;
    }
}

void WriteAndCompare(const rfm_File& source, FileKind kind, const NewFile& out)
{
    Progress progress(2 * source.Repr().Length().Value());
    progress.Begin("copying");
    const CopiedBytes copied = Write(source, kind, out, progress);
    progress.Begin("comparing");
    if (ReadBytes(rfm_File::Open(out.WorkPath().c_str(), utl_FileAccessRead), progress) != copied)
        out.ThrowUnwritten("reading it back gave other bytes than were written");
    if (kind == FileKind::Plain) StampSize(out.WorkPath());
}
} // namespace

std::int64_t CopyVerified(const std::string& in, const std::string& out, FileKind kind, bool mayReplace)
{
    DatabaseFile source(in);
    TellOfSemaphore(source, "a change may be copied half done");
    const WriterWatch watch(in);
    NewFile copy(out, mayReplace, in);
    WriteWatched(in, watch, copy,
                 [&]
                 {
                     WriteAndCompare(OpenForReading(in), kind, copy);
                     DatabaseFile{copy.WorkPath()}; // what doesn't open is no copy
                 });
    copy.Publish();
    return source.File().Repr().Length().Value();
}
} // namespace rfm_tool
