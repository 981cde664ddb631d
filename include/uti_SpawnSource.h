#pragma once

#include "uti_Spawn.h"

/// A child whose standard output comes back through a pipe. Its standard input is empty.
/// Read either by lines or from the descriptor: the lines are read ahead.
class RFM_EXPORT uti_SpawnSource : public uti_Spawn
{
public:
    /// Starts the program that `command` means on the search path. An empty `environment` leaves the child's as this
    /// process has it; otherwise its variables are added or replaced.
    /// Throws: nex_TextException with the system's words when it can't be started; no child and no pipe are left then.
    uti_SpawnSource(const cow_String& command, const cow_1DArrayList<cow_String>& arguments,
                    uti_Redirection& redirection, const cow_Map<cow_String, cow_String>& environment);
    ~uti_SpawnSource() override;

    /// Waits for the next line, however long, and stores it with its line end and a NUL, `size` bytes at most; a longer
    /// line comes in pieces, and the last one of all may lack its end. Answers how many bytes came in front of the
    /// NUL, which tells a line that holds NUL bytes itself; 0 at the end of the output, which is where all writers have
    /// closed it, also those that the child started.
    /// Throws: nex_AssertException for a null `buffer` or a size below 2; utl_BinStreamReadError for what the system
    /// refuses.
    int GetLine(char* buffer, int size);
    /// With more than 0 seconds, what the child still prints is thrown away, and the pipe is closed at the end.
    int Reap(int seconds) override;
    /// Closes the pipe: a child that prints later is told by the system, with SIGPIPE.
    void Detach() override;

    /// The end to read from, -1 when it is closed. It stays this object's.
    int SourceDescriptor() const noexcept { return m_Source.Get(); }

protected:
    /// Nothing is started yet.
    uti_SpawnSource() noexcept;
    void spawnSource(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                     uti_Redirection& redirection, const cow_Map<cow_String, cow_String>& environment);
    /// As `spawnSource`, with `input` as the child's standard input.
    void SpawnWithInput(int input, const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                        uti_Redirection& redirection, const cow_Map<cow_String, cow_String>& environment);

private:
    bool Refill();

    static constexpr int kBlockBytes = 4096;
    utl_Descriptor m_Source;
    std::unique_ptr<char[]> m_Block; // what was read ahead of the last line
    int m_First = 0;
    int m_End = 0;
};
