// The tool as its users start it, beside the tools of the peers: whole processes, from start to end.
#pragma once

#include "Contender.h"

namespace bench
{

std::unique_ptr<Contender> MakeTool(Kind kind, const Setting& setting);
/// A process that does nothing, and our own writer with nobody following.
std::unique_ptr<Contender> MakeToolBare(Kind kind, const Setting& setting);
/// sqlite3 and h5dump; null for what they don't do, and where they are not installed.
std::unique_ptr<Contender> MakeSqliteTool(Kind kind, const Setting& setting);
std::unique_ptr<Contender> MakeHdf5Tool(Kind kind, const Setting& setting);

} // namespace bench
