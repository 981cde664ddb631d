#pragma once

#include "rfm_Export.h"

/// The whole browsing service: answers the requests that come over standard input on standard output until the client
/// goes away or asks for the end. A program for it needs no more than
///
///     int main() { return ProcessRequest(); }
///
/// Standard output belongs to the replies: the program writes nothing else there. What the service has to say goes to
/// standard error; a program whose standard error may be closed early ignores SIGPIPE. The service sees what the user
/// sees under whom it runs, and removes files on request.
/// Result: 0 when the client has gone, 1 after a text exception, such as for a request that no client writes. When the
/// client asks for the end, the call does not return: the process ends with 0.
/// Throws: what is no text exception passes through.
/// Threads: one; the two descriptors belong to it.
RFM_EXPORT int ProcessRequest();
