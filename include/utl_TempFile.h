#pragma once

#include "cow_String.h"
#include "utl_Descriptor.h"

#include <cstdint>

/// A file that goes with this object. Others may open it by its name, replace it or remove it meanwhile.
/// Throws: utl_FileException with the file's name and the system's words for what the system refuses.
/// Threads: one at a time.
class RFM_EXPORT utl_TempFile
{
public:
    /// A name of the caller's, where a file may stand or come to stand; or the empty name for a fresh, empty file that
    /// only this user may touch, in the directory of TMPDIR when that is an absolute path, else in /tmp.
    explicit utl_TempFile(const cow_String& name);
    utl_TempFile(const utl_TempFile&) = delete;
    utl_TempFile& operator=(const utl_TempFile&) = delete;
    /// Deletes the file, if there is one.
    ~utl_TempFile();

    const cow_String& Name() const noexcept { return m_Name; }
    /// Opens the file for reading, from its first byte on, however often that was done before. False when there is none,
    /// when it can't be opened, and when it is anything but a regular file.
    bool OpenIfPresent();
    /// Hands over what `OpenIfPresent` opened, -1 when there is nothing. It is the caller's now, to be closed as he
    /// likes, by `fclose` too; what nobody took is closed by this object.
    int TakeDescriptor() noexcept { return m_Descriptor.Release(); }
    /// Bytes that this user may still fill in the file's directory.
    std::uint64_t AvailableSpace() const;

private:
    cow_String m_Name;
    utl_Descriptor m_Descriptor;
};
