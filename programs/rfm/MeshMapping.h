#pragma once

#include <string>
#include <vector>

// How tables make a mesh: KEY=VALUE, on the command line or one on a line of a file.
//
//   nodes=NODES             the table of nodes, by handle or name
//   xyz=x,y,z               its fields with their places; two of them lie in the plane
//   ids=id                  its field with the numbers that elements know nodes by; without it they are row numbers
//   first=1                 the number of the first row then, 0 when it isn't given
//   elements=ELEMENTS       the table of elements
//   corners=n1,n2,n3,n4     its fields with the nodes of an element, in VTK's order; without it those whose name
//                           ends in a number, by that number. An element has as many nodes as there is data in these
//   cells=quad              what elements of so many nodes are, where it is not the usual
//   point-data=t=14,NODES.u what belongs to nodes, by names of its own or not
//   cell-data=...           what belongs to elements
//
// In a file lines without anything and those that begin with # say nothing.

namespace rfm_tool
{
struct MeshMapping
{
    std::string nodes;
    std::string xyz;
    std::string ids;
    std::string first;
    std::string elements;
    std::string corners;
    std::string cells;
    std::string pointData;
    std::string cellData;
};

/// What the words say, and where they are silent the file; an empty path is none.
/// Throws: Failure for a file that can't be read, a line that can't be understood, and without a table of nodes or
/// elements.
MeshMapping ReadMeshMapping(const std::vector<std::string>& words, const std::string& path);
} // namespace rfm_tool
