#include "rfm_FileReprHdf.h"

#include "nex_Exception.h"
#include "rfm_FileException.h"

#include <algorithm>

namespace
{
constexpr int kChunkBytes = 4096;

rfm_HdfByteDataset OpenOrCreate(hdf_Group& group, const cow_String& name, utl_FileAccess access)
{
    switch (access)
    {
    case utl_FileAccessRead:
    case utl_FileAccessUpdate: return rfm_HdfByteDataset::Open(group, name);
    case utl_FileAccessCreate: return rfm_HdfByteDataset::Create(group, name, kChunkBytes);
    }
    nex_ThrowAssert("!\"Incorrect file access.\"");
}
} // namespace

rfm_FileReprHdf::rfm_FileReprHdf(const cow_String& name, hdf_Group& group, const cow_String& datasetName,
                                 utl_FileAccess access)
    : rfm_FileRepr(name),
      m_Dataset(OpenOrCreate(group, datasetName, access))
{
    m_LogicalFileSize = m_PhysicalFileSize = m_Dataset.Length();
}

void rfm_FileReprHdf::CheckWritable() const
{
    if (ReadOnly()) rfm_FileReadOnlyExc(m_FileName).Throw(__FILE__, __LINE__);
}

// A negative position, which a seek does not refuse, ends in the next read or write.
int rfm_FileReprHdf::ReadUpToEnd(char* buffer, int count)
{
    if (buffer == nullptr || count < 0 || m_Position < 0)
        rfm_FileBadParameterExc("rfm_FileReprHdf::Read").Throw(__FILE__, __LINE__);
    const int read = m_Dataset.Read(m_Position.Value(), buffer, count);
    m_Position += read;
    return read;
}

int rfm_FileReprHdf::Read(char* buffer, int count)
{
    const utl_FileOffset end = m_Position + count;
    ReadUpToEnd(buffer, count);
    m_Position = end;
    return count;
}

int rfm_FileReprHdf::Write(const char* buffer, int count)
{
    CheckWritable();
    if (buffer == nullptr || count < 0 || m_Position < 0)
        rfm_FileBadParameterExc("rfm_FileReprHdf::Write").Throw(__FILE__, __LINE__);
    const utl_FileOffset end = m_Position + count;
    m_Dataset.Write(m_Position.Value(), buffer, count);
    m_Position = end;
    m_PhysicalFileSize = std::max(m_PhysicalFileSize, m_Position);
    return count;
}

bool rfm_FileReprHdf::ExtendBy(utl_FileOffset delta)
{
    CheckWritable();
    m_LogicalFileSize += delta;
    m_PhysicalFileSize = m_LogicalFileSize;
    return true;
}

// An extent that was reserved and not written to its end would else leave the dataset short of it, and the next writer
// would put something new into it.
void rfm_FileReprHdf::TrimToLength()
{
    CheckWritable();
    m_Dataset.ExtendTo(m_LogicalFileSize.Value());
}

void rfm_FileReprHdf::Flush()
{
    TrimToLength();
    m_Dataset.Flush();
}

void rfm_FileReprHdf::RaiseLogicalLength(utl_FileOffset end)
{
    m_LogicalFileSize = std::max(m_LogicalFileSize, end);
}
