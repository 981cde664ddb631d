#include "rds_Client.h"

rds_Client::rds_Client(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                       utl_TempFile* stdErrFile, uti_Redirection& redirection)
    : uti_SpawnSourceWithSink(program, arguments, redirection, {}),
      m_StdErrFile(stdErrFile)
{
}

rds_Client::~rds_Client() = default;
