#pragma once

#include <string>
#include <string_view>

// What the first bytes of a file say that it is.

namespace rfm_tool
{
constexpr int kMarkBytes = 64; // that are looked at

/// The first bytes of a file of this host; empty when it can't be read.
std::string StartOfFile(const std::string& path);

/// A database in any kind of file; the old format has a mark of its own.
bool HasDatabaseMark(std::string_view start);
bool HasOldDatabaseMark(std::string_view start);

/// What a file is that is no database: "a PNG picture", "a text", "binary data".
std::string LooksLike(std::string_view start);
/// What a file is that can be no text, by its mark: "a PNG picture", "a database". Empty for others.
std::string BinaryKind(std::string_view start);

/// What to do about a file with the mark of a database that the library doesn't open.
std::string RemedyForUnopened(const std::string& path);
} // namespace rfm_tool
