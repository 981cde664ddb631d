#pragma once

#include <string>

namespace rfm_tool
{
/// A file that comes under its name whole or not at all. It is written under a name of its own in the same folder:
///
///              Publish: on the disk, then renamed
///   (unfinished) --------------------------------> (there)
///        |
///        | destroyed; SIGINT, SIGTERM or SIGHUP comes
///        v
///     (gone)
///
/// Only a run that is killed outright leaves `.rfm-*.part` behind. One at a time in a process.
class NewFile
{
public:
    /// `source` is the file from which it is made. Nothing is made yet.
    /// Throws: Failure when `path` is there and may not be replaced, or can't be.
    NewFile(const std::string& path, bool mayReplace, const std::string& source);
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile();

    /// The name under which to write.
    const std::string& WorkPath() const noexcept { return m_WorkPath; }
    /// The file takes its name. It must be closed.
    /// Throws: Failure.
    void Publish();

    /// "OUT: WHY", as a failure of ours.
    [[noreturn]] void ThrowUnwritten(const std::string& why) const;

private:
    std::string m_Path;   // as the user gave it
    std::string m_Target; // the file behind symbolic links
    std::string m_WorkPath;
    unsigned m_Mode = 0; // of the file that is replaced
    bool m_Replaces = false;
};

/// While it lives, standard error is silent. For throwing away what was half written: its destructors try once more,
/// and would tell of the same refusal again.
class QuietStandardError
{
public:
    QuietStandardError();
    QuietStandardError(const QuietStandardError&) = delete;
    QuietStandardError& operator=(const QuietStandardError&) = delete;
    ~QuietStandardError();

private:
    int m_Kept;
};
} // namespace rfm_tool
