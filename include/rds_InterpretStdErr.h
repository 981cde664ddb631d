#pragma once

#include "cow_String.h"
#include "rfm_Export.h"

class utl_TempFile;

/// The whole text that a child wrote to its standard error, line ends included, as the reason of an error message;
/// "Can't be determined" when there is none, or no file. What is behind the first 16 MiB is left out.
RFM_EXPORT cow_String rds_InterpretStdErr(utl_TempFile& file);

/// The last line that a driver marked as an error, line end included: one that begins with "MARLEK Error:", "*** Error:",
/// "***Error:", "***ERROR:" or "*** ERROR:". Empty when there is none. A line of more than 510 bytes is taken for
/// several. Of what is there now the last 16 MiB count.
RFM_EXPORT cow_String rds_InterpretMarlekErr(utl_TempFile& file);
