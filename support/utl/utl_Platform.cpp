#include "utl_Platform.h"

cow_String utl_getPlatform() { return "linux"; }
cow_String remoteShellCommand() { return "rsh"; }
cow_String secureShellCommand() { return "ssh"; }
