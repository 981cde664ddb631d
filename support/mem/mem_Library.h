#pragma once

/// The calls of one library's `_initialize` and `_finalize`, which nest: only the outermost pair does anything, and it
/// raises and lowers the caller's own count by one.
/// Threads: none; it serves the start and the end of a process.
class mem_LibraryCalls
{
public:
    /// True for the call that is to initialise.
    bool Enter(int& count);
    /// True for the call that is to tear down. Without an `Enter` before it, nothing happens: a depth below 0 would
    /// swallow the next end.
    bool Leave(int& count);

private:
    int m_Depth = 0;
};

void mem_initialize(int& count);
void mem_finalize(int& count);
