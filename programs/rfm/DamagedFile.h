#pragma once

#include "FileKind.h"
#include "FileStamp.h"
#include "Salvage.h"
#include "WriterWatch.h"

#include <memory>
#include <optional>
#include <string>

namespace rfm_tool
{
/// A file that `recover` reads: of which kind it is, though its first bytes may be damaged, and what of it can be read.
class DamagedFile
{
public:
    /// What of the file itself, not of the database in it, can't be read or was mended goes to `losses`.
    /// Throws: Failure when no database is found in it, or HDF5 refuses it.
    DamagedFile(const std::string& path, LossList& losses);

    FileKind Kind() const noexcept { return m_Kind; }
    /// It fills its holes.
    FileImage& Image() noexcept { return *m_Image; }
    /// Throws: Failure with ExitBusy when a writer was there since it was opened.
    void RequireRest() const;

private:
    void OpenPlain();
    void OpenHdf5();
    void OpenCompressed();
    void MarkHurtBytes();
    void LoseBytes(std::int64_t start, std::int64_t end);

    std::string m_Path;
    LossList& m_Losses;
    FileKind m_Kind;
    FileStamp m_Stamp;
    std::unique_ptr<FileImage> m_Image;
    std::optional<WriterWatch> m_Watch; // of a plain file; of the others any change counts
};
} // namespace rfm_tool
