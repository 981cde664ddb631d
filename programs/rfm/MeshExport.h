#pragma once

#include "DatabaseFile.h"
#include "MeshMapping.h"
#include "VtuFormat.h"

#include <string>
#include <vector>

namespace rfm_tool
{
/// The mesh that a mapping finds in a database. Each word of `data` is OBJECT or NAME=OBJECT: what has a row for
/// each node belongs to the nodes, what has one for each element to these.
/// Throws: Failure for what isn't there, doesn't fit together or can't be read.
VtuGrid ReadMesh(DatabaseFile& file, const MeshMapping& mapping, const std::vector<std::string>& data);
} // namespace rfm_tool
