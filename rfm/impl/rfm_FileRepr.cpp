#include "rfm_FileRepr.h"

#include "atr_Translate.h"
#include "nex_Exception.h"

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

void rfm_FileRepr::WriteSizeStamp(int) {}
void rfm_FileRepr::VerifySizeStamp(int) {}
bool rfm_FileRepr::GrowsBy(utl_FileOffset) const { return false; }
void rfm_FileRepr::ClearSizeStamp(int) {}
void rfm_FileRepr::RaiseLogicalLength(utl_FileOffset) {}
void rfm_FileRepr::Refresh() {}
void rfm_FileRepr::ForgetKept() {}
void rfm_FileRepr::OrderWrites() {}

cow_String rfm_SemaphorePath(const cow_String& fileName)
{
    std::string_view stem = fileName.View();
    if (stem.ends_with(".rdx")) stem.remove_suffix(4);
    return cow_String(stem) + ".lsm";
}

// Lets a person run a writer step by step and look at a reader meanwhile.
static void PauseForTransaction(const char* prompt)
{
    std::fputs(prompt, stderr);
    std::fflush(stderr);
    for (int c = std::getchar(); c != EOF && c != '\n';) c = std::getchar();
}

static bool WantsPauses() { return std::getenv("PAUSE_FOR_TRANSACTION") != nullptr; }

// Making and removing the directory is not looked at: it is advice to readers, and a writer must not fail for it.
void rfm_FileRepr::SemaphoreSet()
{
    if (ReadOnly()) return;
    if (WantsPauses()) PauseForTransaction("Before transaction: ");
    Flush();
    static_cast<void>(::mkdir(rfm_SemaphorePath(m_FileName).CString(), 0777));
    m_SemaphoreHeld = true;
}

void rfm_FileRepr::SemaphoreClear()
{
    if (ReadOnly()) return;
    Flush(); // before readers may look again
    static_cast<void>(::rmdir(rfm_SemaphorePath(m_FileName).CString()));
    if (WantsPauses()) PauseForTransaction("After transaction: ");
    m_SemaphoreHeld = false;
}

bool rfm_FileRepr::IsHeldByWriter()
{
    return !m_SemaphoreHeld && CheckStatus() == rfm_FileStatus::RfmFileInTransaction;
}

void rfm_ThrowBadSizeStamp(const char* sourceName, int line)
{
    nex_ThrowText(
        atr_Message(
            "***ERROR: The MARLEK database file is corrupt. If this file was transferred from another "
            "machine using FTP or equivalent, ensure that the file was copied using the binary mode "
            "instead of ASCII mode."),
        sourceName, line);
}
