#include "doctor.h"

#include "Digest.h"
#include "ProgramSearch.h"
#include "Text.h"

#include <fmt/format.h>
#include <hdf5.h>
#include <langinfo.h>
#include <locale.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <zlib.h>

#ifdef RFM_HAVE_LIBDEFLATE
#include <libdeflate.h>
#endif

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <stdexcept>

namespace rfm_tool
{
namespace
{
constexpr double kMebibyte = 1024.0 * 1024.0;
// Less than this in the folder of temporary files will not do for long.
constexpr double kLeastFreeMebibytes = 100;

// One thing that was looked at.
struct Finding
{
    bool isFine = true;
    std::string name;
    std::string found;
    std::string note; // what it is for, or what to do
};

Finding Fine(std::string name, std::string found, std::string note = "")
{
    return {true, std::move(name), std::move(found), std::move(note)};
}
Finding Warning(std::string name, std::string found, std::string remedy)
{
    return {false, std::move(name), std::move(found), std::move(remedy)};
}

// --- versions ---------------------------------------------------------------------------------------------------

std::string Hdf5Version()
{
    unsigned major = 0;
    unsigned minor = 0;
    unsigned release = 0;
    if (H5get_libversion(&major, &minor, &release) < 0) return "unknown";
    return fmt::format("{}.{}.{}", major, minor, release);
}

// Loaded for this alone: no other start of the tool pays for it.
Finding OpenSsl()
{
    try
    {
        return Fine("OpenSSL", Digest::LibraryVersion(), "rfm hash");
    }
    catch (const std::runtime_error& failure)
    {
        return Warning("OpenSSL", "missing", failure.what());
    }
}

Finding Libdeflate()
{
#ifdef RFM_HAVE_LIBDEFLATE
    return Fine("libdeflate", LIBDEFLATE_VERSION_STRING, "compressed files");
#else
    return Warning("libdeflate", "not built in", "compressed files are slower: build with libdeflate");
#endif
}

void AddVersions(std::vector<Finding>& findings)
{
    findings.push_back(Fine("rfm", RFM_VERSION));
    findings.push_back(Fine("zlib", zlibVersion(), "compressed files"));
    findings.push_back(Libdeflate());
    findings.push_back(Fine("HDF5", Hdf5Version(), "HDF5 files"));
    findings.push_back(OpenSsl());
}

// --- programs ---------------------------------------------------------------------------------------------------

Finding Relay()
{
    if (const std::optional<std::string> path = FindRelay())
        return Fine("qlnsrv", *path, "databases on other hosts");
    return Warning("qlnsrv", std::getenv("MRL_PATH") == nullptr ? "MRL_PATH is not set" : "not found",
                   "for databases on other hosts set MRL_PATH to a folder that holds "
                   "External/qlnsrv/qlnsrv; the package rfm-remote has it below /usr/libexec/rfm");
}

Finding Ssh()
{
    if (const std::optional<std::string> path = FindBelow("PATH", "ssh"))
        return Fine("ssh", *path, "logs in to other hosts");
    return Warning("ssh", "not found along PATH", "for databases on other hosts install openssh-client");
}

// --- surroundings -----------------------------------------------------------------------------------------------

Finding TemporaryFiles()
{
    // As the library takes it: a relative TMPDIR does not count.
    const char* chosen = std::getenv("TMPDIR");
    const std::string folder = chosen != nullptr && chosen[0] == '/' ? chosen : "/tmp";
    struct statvfs volume = {};
    if (::access(folder.c_str(), W_OK | X_OK) != 0 || ::statvfs(folder.c_str(), &volume) != 0)
        return Warning("temporary files", folder,
                       "no file can be made there: set TMPDIR to a folder that can be written");
    const double free =
        static_cast<double>(volume.f_bavail) * static_cast<double>(volume.f_frsize) / kMebibyte;
    const std::string found = fmt::format("{}, {:.0f} MiB free", folder, free);
    return free < kLeastFreeMebibytes
               ? Warning("temporary files", found, "make room there, or set TMPDIR to a folder with more")
               : Fine("temporary files", found);
}

Finding Locale()
{
    const locale_t locale = ::newlocale(LC_ALL_MASK, "", nullptr);
    if (locale == nullptr)
        return Warning("locale", "not installed",
                       "LANG and the LC_ variables name a locale that is not there: set LC_ALL to C.UTF-8");
    const std::string encoding = ::nl_langinfo_l(CODESET, locale);
    ::freelocale(locale);
    return encoding == "UTF-8"
               ? Fine("locale", encoding)
               : Warning("locale", encoding, "texts are shown as UTF-8: set LC_ALL to C.UTF-8");
}

// --- variables --------------------------------------------------------------------------------------------------

struct Variable
{
    const char* name;
    const char* meaning;
};
// All that the library asks for; a check of the sources compares.
constexpr Variable kVariables[] = {
    {"MRL_PATH", "folders below which the relay of remote connections is looked for"},
    {"MRK_HDF_RDX", "when set, new databases become HDF5 files"},
    {"MRK_RFM_LOGIFY", "when set, each file that is opened is told on standard error"},
    {"PAUSE_FOR_TRANSACTION", "when set, a writer waits for the Return key around each semaphore"},
    {"nrdx_debug",
     "when set, each request of a remote file is told on standard error, and servers write a log nrdxError"},
    {"HOMEDRIVE", "with HOMEPATH: where passwords of connections are looked for, instead of HOME"},
    {"HOMEPATH", "with HOMEDRIVE: the same"},
    {"HOME", "where passwords of connections are looked for"},
    {"PATH", "folders of the programs that are started, ssh among them"},
    {"TMPDIR", "folder of temporary files, /tmp without it"},
};

void AddVariables(std::vector<Finding>& findings)
{
    for (const Variable& variable : kVariables)
    {
        const char* value = std::getenv(variable.name);
        findings.push_back(Fine(variable.name, value == nullptr ? "not set" : value, variable.meaning));
    }
    // A writer that waits at a prompt nobody expects looks like one that hangs.
    if (std::getenv("PAUSE_FOR_TRANSACTION") != nullptr)
        findings.push_back(
            Warning("pauses", "PAUSE_FOR_TRANSACTION is set", "writers wait for the Return key: unset it"));
    if ((std::getenv("HOMEDRIVE") == nullptr) != (std::getenv("HOMEPATH") == nullptr))
        findings.push_back(Warning("passwords", "one of HOMEDRIVE and HOMEPATH is set",
                                   "no password file is found: set both or none"));
}

// --- the command ------------------------------------------------------------------------------------------------

std::string_view Word(const Finding& finding) { return finding.isFine ? "ok" : "warn"; }

// The last cell of a line is a sentence: the terminal may wrap it, where a listing would cut it.
void WriteForPerson(Output& output, const std::vector<Finding>& findings)
{
    for (const Finding& finding : findings)
        output.Line(fmt::format("{:<5}{:<22} {}{}{}", Word(finding), finding.name, OneLine(finding.found),
                                finding.note.empty() ? "" : " - ", finding.note));
}

void WriteListing(Output& output, Style style, const std::vector<Finding>& findings)
{
    Listing listing(output, style,
                    {{"state", "string"}, {"name", "string"}, {"found", "string"}, {"note", "string"}},
                    "\"command\":\"doctor\",");
    for (const Finding& finding : findings)
    {
        listing.Row({Cell::OfText(Word(finding)), Cell::OfText(finding.name), Cell::OfText(finding.found),
                     Cell::OfText(finding.note)});
    }
    listing.Finish();
}

class DoctorCommand : public Command
{
public:
    std::string_view Name() const override { return "doctor"; }
    std::string_view Summary() const override
    {
        return "versions and surroundings, and what to do about them";
    }
    std::string_view Help() const override
    {
        return "A line for each thing that the tool and the library depend on: ok or warn, its name, what "
               "was\n"
               "found, and what it is for or what to do. Versions, the programs of remote connections, the\n"
               "folder of temporary files, the locale, and the variables that the library looks at. With a\n"
               "warning the exit code is 1.\n"
               "\n"
               "examples:\n"
               "  rfm doctor\n"
               "  rfm doctor | grep ^warn\n"
               "  rfm doctor --json | jq -r '.rows[] | select(.[0] == \"warn\") | .[3]'\n";
    }
    void Declare(Options& options) override { m_Style.DeclareJson(options); }
    int Run(Output& output) override;

private:
    StyleOptions m_Style;
};

int DoctorCommand::Run(Output& output)
{
    std::vector<Finding> findings;
    AddVersions(findings);
    findings.push_back(Relay());
    findings.push_back(Ssh());
    findings.push_back(TemporaryFiles());
    findings.push_back(Locale());
    AddVariables(findings);

    const bool anyWarning =
        std::any_of(findings.begin(), findings.end(), [](const Finding& finding) { return !finding.isFine; });
    const Style style = m_Style.Choose(output);
    if (style == Style::Aligned)
        WriteForPerson(output, findings);
    else
        WriteListing(output, style, findings);
    return anyWarning ? ExitNo : ExitDone;
}
} // namespace

std::unique_ptr<Command> MakeDoctor() { return std::make_unique<DoctorCommand>(); }
} // namespace rfm_tool
