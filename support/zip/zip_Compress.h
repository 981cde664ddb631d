#pragma once

/// The one door to the compressor. Arguments and results are those of zlib's compress2 and uncompress, and what is
/// written is a zlib stream that any zlib reads; which engine does the work is decided behind the door.
/// Threads: any; each keeps working memory of its own, less than 1 MiB, from its first call to its end.

/// Compresses at `level`, -1 to 9. `*targetLength` is the room at `target` and becomes the length of the stream.
/// Result: 0, or zlib's (negative) number for too little room, for a level that is none, for want of memory.
int zip_compress2(unsigned char* target, unsigned long* targetLength, const unsigned char* source,
                  unsigned long sourceLength, int level);

/// Inflates one stream; bytes behind its end don't matter. `*targetLength` is the room at `target` and becomes the
/// number of bytes that came out.
/// Result: 0, or zlib's number for too little room, and for a stream that is damaged or ends early. What is at
/// `target` after a failure is undefined.
int zip_uncompress(unsigned char* target, unsigned long* targetLength, const unsigned char* source,
                   unsigned long sourceLength);

/// The last bytes of a room that may not be written when a stream goes on behind it: a copy of 258 is the longest step. A
/// block that is stored as it is, since it does not compress, may be left out whole.
inline constexpr int zip_FrontSlack = 258;

/// Inflates as much of a stream as there is room for, in about that part of the time that all of it takes. Nothing vouches
/// for these bytes: the sum of a stream is that of all of it, and the fast engine makes no promise of what it leaves behind
/// when the room is used up. Who asks must know them by another mark.
/// Result: whether nothing was wrong up to there.
bool zip_uncompress_front(unsigned char* target, unsigned long room, const unsigned char* source,
                          unsigned long sourceLength);
