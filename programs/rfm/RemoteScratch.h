#pragma once

namespace rfm_tool
{
/// A folder for what the library keeps on the disk while files of other hosts are open: what was read, and what the programs
/// in between said. It stands in TMPDIR for this process and its children, and goes at the end, also when SIGINT, SIGTERM
/// or SIGHUP comes.
///
/// Made at the first call; the others do nothing. Where no folder can be made, the files go where they would have gone.
void UseRemoteScratch();
/// Removes the folder and what it holds. Safe in a handler of signals.
void RemoveRemoteScratch() noexcept;
} // namespace rfm_tool
