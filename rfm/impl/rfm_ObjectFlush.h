#pragma once

class rfm_IOBuffer;

/// The flush that tables, arrays and streams share: brings the object's count to its header and everything to the space.
/// Answers the new count. The position stays, also when the file refuses: then the count is due again, and nothing of
/// what was written is lost.
int rfm_FlushObject(rfm_IOBuffer& buffer, int flushCount);
