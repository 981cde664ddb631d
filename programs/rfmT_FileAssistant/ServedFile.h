#pragma once

#include "StatusWatch.h"
#include "rfm_File.h"
#include "utl_File.h"

#include <cstdint>
#include <optional>

namespace assistant
{
/// The one file that is served, opened for reading once. Of a compressed or an HDF5 file it is the plain database inside,
/// so that a reader elsewhere knows one kind only.
class ServedFile
{
public:
    /// Sets up `watch` for a file that readers may follow. It looks first: of a file that is replaced meanwhile, the new
    /// one is served and told as replaced, not the old one for ever.
    /// Throws: farend::Failure for anything but a regular file, which then was not opened; what the library says.
    ServedFile(const cow_String& path, std::optional<StatusWatch>& watch);

    /// Whether readers may follow a writer of it: for plain files only.
    bool IsFollowed() const noexcept { return m_Plain.IsOpen(); }
    std::int64_t Size() const;
    /// The bytes of now, and as many as there are: fewer at the end of the file, none behind it.
    int Read(std::int64_t start, char* buffer, int count);

    /// A mark that differs from an earlier one when a write came between. kUnsettled where the last write is so young
    /// that another one could bear the same time.
    std::int64_t WriteMark() const;
    static constexpr std::int64_t kUnsettled = -1;
    /// Tells the system that these bytes will be wanted soon.
    void Expect(std::int64_t start, int count) const noexcept;

private:
    int ReadDecoded(std::int64_t start, char* buffer, int count);
    void ForgetWrongStamp(char* header) const;

    utl_File
        m_Plain; // read without an own block in front, which would keep what the writer has changed since
    rfm_File m_Decoded;
};
} // namespace assistant
