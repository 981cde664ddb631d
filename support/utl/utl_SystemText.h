#pragma once

#include "cow_String.h"

/// The system's words for an errno value. Unlike `strerror` it may be asked by many threads at once.
cow_String utl_SystemText(int error);
