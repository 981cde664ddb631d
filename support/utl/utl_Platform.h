#pragma once

#include "cow_String.h"

/// The word for the platform that this library runs on.
cow_String utl_getPlatform();

/// The names of the programs that run a command on another host, to be found on the search path.
cow_String remoteShellCommand();
cow_String secureShellCommand();
