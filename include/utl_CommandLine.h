#pragma once

#include "cow_String.h"
#include "rfm_Export.h"

#include <functional>
#include <map>
#include <string>

/// The options of the process, by which whoever starts a program tunes what lies deep in the library:
///
///     nrdx_page_size=KIB      size of one page of a remote file; read when the first remote file is opened
///     nrdx_cache_limit=MIB    most that the pages of remote files may take on the disk; read at the same time
///     nrdx_debug=             one line on standard error for each request of a remote file; read at each open
///
/// The library does not look at the arguments of a program by itself. A program that has options of this kind hands
/// them over at its start, before it opens anything:
///
///     utl_CommandLine::OfProcess().TakeArguments(argc, argv);
///
/// Threads: changed by one thread, before others use the library; read by any number after that.
class RFM_EXPORT utl_CommandLine
{
public:
    static utl_CommandLine& OfProcess();

    /// Takes each argument behind the first that has the form NAME=VALUE, with or without "-" or "--" in front of a name
    /// of letters, digits and "_"; the last of a name wins. All others are left to the program. Answers how many it took.
    int TakeArguments(int count, const char* const* arguments);
    void Set(const cow_String& name, const cow_String& value);

    bool IsMember(const cow_String& name) const;
    /// The option's value; 0 when there is no such option.
    /// Throws: nex_TextException when the value is no whole number that an int can hold.
    int ConstGetValueAsInt(const cow_String& name) const;

private:
    // Standard strings: many threads may read them at once, which counted ones don't allow.
    std::map<std::string, std::string, std::less<>> m_Values;
};
