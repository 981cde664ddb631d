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
