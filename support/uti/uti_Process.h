#pragma once

#include "cow_1DArrayList.h"
#include "cow_Map.h"
#include "cow_String.h"
#include "utl_Descriptor.h"

#include <optional>

// What the operating system does with processes. They are named by descriptors, never by numbers: a number may belong to
// somebody else by the time that it is used.

/// The status of a child of which nothing is known: it did not end in time, or somebody else asked the system first.
inline constexpr int uti_StatusUnknown = -1;

/// What a child finds under its standard descriptors: open files of the parent's, or -1 for an empty input, the
/// parent's own output, the parent's own error.
struct uti_StandardStreams
{
    int input = -1;
    int output = -1;
    int error = -1;
};

/// Starts `program` with these arguments behind its name, and gives the descriptor of the process: none when the child
/// has ended already in a program that ignores SIGCHLD or waits for children it did not start. The child has the three
/// standard descriptors and no other one, no blocked signal, the system's own handling of SIGPIPE and SIGCHLD, and the
/// parent's environment with the variables of `environment` added or replaced.
/// Throws: nex_TextException with the system's words when it can't be started; there is no child then.
utl_Descriptor uti_Start(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                         const cow_Map<cow_String, cow_String>& environment,
                         const uti_StandardStreams& streams);

/// Throws the nex_TextException that `program` can't be started, with the system's words for `error`.
[[noreturn]] void uti_RefuseStart(const cow_String& program, int error);

/// The status of a child that has ended, which the system then forgets: its exit status, 128 and the signal's number
/// when a signal ended it. Nothing while it runs.
std::optional<int> uti_Ended(int process) noexcept;

/// Sends a signal to a child that has not been asked for its end.
void uti_Signal(int process, int signal) noexcept;
