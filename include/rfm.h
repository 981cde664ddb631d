#pragma once

/// Everything that a program needs for databases.
#include "rfm_BufferedSpace.h"
#include "rfm_Database.h"
#include "rfm_Library.h"
#include "rfm_ReaderSemaphoreProxy.h"
