#pragma once

namespace farend
{
/// What each of the programs does before anything else: a peer that leaves becomes an answer of write(), children tell of
/// their end whatever the starter had set, nothing is open but the three standard descriptors, and the key stays inside.
/// Throws: Failure.
void SetUpProcess();

/// Ends the program. The standard streams are flushed; the rest of the clean-up is left out, since a leak checker that
/// runs in it can't look into a process that keeps secrets.
[[noreturn]] void Leave(int code) noexcept;
} // namespace farend
