#pragma once

#include <cstddef>
#include <cstdint>

/// Writes `bytes` to a file in memory, opens it as a database and reads everything that can be reached in it.
/// Refusals of the library are the right answer and end quietly; anything else that is thrown comes out.
void fuzz_WalkDatabase(const std::uint8_t* bytes, std::size_t size);

/// Opens a copy of `bytes` for update, appends a little to every object, makes a new table and a new space, closes, and
/// walks what came of it. Refusals are the right answer here too.
void fuzz_AppendToDatabase(const std::uint8_t* bytes, std::size_t size);
