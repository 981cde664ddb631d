#pragma once

#include <string>
#include <vector>

namespace assistant
{
/// The file that the words behind the program's name ask for: PATH [-scratch].
/// With `-scratch`, PATH begins with the word SCRATCHDIR_RHOST, a "/" or "$" or both before it or nothing, and that
/// stands for this host's scratch directory: the variable SCRATCHDIR_RHOST, else TMPDIR, else /tmp.
/// Throws: farend::Failure.
std::string FileToServe(const std::vector<std::string>& words);
} // namespace assistant
