// The service through which other hosts look around here. Its standard input and output are the requests and replies;
// qlnsrvd starts it and keeps the key to itself.

#include "rds_ProcessRequest.h"

#include <csignal>
#include <cstdio>
#include <exception>

int main()
try
{
    std::signal(SIGPIPE, SIG_IGN); // the daemon may have closed standard error before the last words
    return ProcessRequest();
}
catch (const std::exception& failure)
{
    std::fprintf(stderr, "rdsT_FileBrowsing, %s\n", failure.what());
    return 2;
}
