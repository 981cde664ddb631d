#pragma once

/// Everything that a program needs for connections to other hosts.
#include "rdb_FileFilterID.h"
#include "rds_CFileBrowsing.h"
#include "rds_Client.h"
#include "rds_DirectoryEntity.h"
#include "rds_InterpretStdErr.h"
#include "rds_Library.h"
#include "rds_ProcessRequest.h"
#include "rds_RemoteConnection.h"
#include "rds_RemoteConnectionsRep.h"
