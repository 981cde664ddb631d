#include "ServedFile.h"

#include "Failure.h"
#include "rfm_FileRepr.h"
#include "rfm_FileReprLocal.h"
#include "rfm_HeaderFormat.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <string>

namespace assistant
{
using farend::Failure;

namespace
{
// Before anything is opened: opening a device may be enough to make it do something.
void RefuseUnlessRegular(const cow_String& path)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path.CString(), error);
    if (status.type() == std::filesystem::file_type::not_found)
        throw Failure(std::string("no such file: ") + path.CString());
    if (error) throw Failure(error.message() + ": " + path.CString());
    if (status.type() != std::filesystem::file_type::regular)
        throw Failure(std::string("not a regular file: ") + path.CString());
}

// The system stamps writes with this clock.
std::int64_t CoarseNow()
{
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}
} // namespace

ServedFile::ServedFile(const cow_String& path, std::optional<StatusWatch>& watch)
{
    RefuseUnlessRegular(path);
    m_Decoded = rfm_File::Open(path, utl_FileAccessRead);
    if (dynamic_cast<rfm_FileReprLocal*>(&m_Decoded.Repr()) == nullptr) return;
    watch.emplace(path);
    m_Plain.Open(path, utl_FileAccessRead, 0);
    m_Plain.SetReadsAhead(false);
    m_Decoded = rfm_File();
}

std::int64_t ServedFile::Size() const
{
    return IsFollowed() ? m_Plain.FileSize().Value() : m_Decoded.Repr().LogicalLength().Value();
}

int ServedFile::Read(std::int64_t start, char* buffer, int count)
{
    if (!IsFollowed()) return ReadDecoded(start, buffer, count);
    m_Plain.Seek(start);
    return m_Plain.Read(buffer, count);
}

int ServedFile::ReadDecoded(std::int64_t start, char* buffer, int count)
{
    const std::int64_t size = Size();
    if (start >= size) return 0;
    rfm_FileRepr& file = m_Decoded.Repr();
    file.Seek(start);
    const int read = file.ReadUpToEnd(buffer, static_cast<int>(std::min<std::int64_t>(count, size - start)));
    if (start == 0 && read >= rfm_HeaderBytes) ForgetWrongStamp(buffer);
    return read;
}

// Compressed and HDF5 files keep no size stamp. One that came with the bytes of a plain file is of no matter to who
// opens the file here, and must not look like a damage to who reads it as a plain one.
void ServedFile::ForgetWrongStamp(char* header) const
{
    char* stamp = header + rfm_SizeStampOffset;
    if (!rfm_SizeStampAllows(stamp, m_Decoded.Repr().Swapped(), Size()))
        std::fill_n(stamp, rfm_SizeStampBytes, '\0');
}

std::int64_t ServedFile::WriteMark() const
{
    const std::int64_t now = CoarseNow(); // first: a write from here on is stamped with it or later
    const std::int64_t last = m_Plain.LastChange();
    return last < now ? last : kUnsettled;
}

void ServedFile::Expect(std::int64_t start, int count) const noexcept
{
    if (IsFollowed()) m_Plain.Expect(start, count);
}
} // namespace assistant
