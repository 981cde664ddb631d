#pragma once

#include "hdf_Group.h"

#include <cstdint>
#include <memory>

/// An array of bytes that grows, as one dataset of an HDF5 file:
///
///   dataset  rank 1, elements STD_I8LE, as long as the file, unlimited
///   layout   chunks, no filter, no cache of HDF5's in front of them
///
/// A transfer through HDF5 costs some microseconds whatever its size, so small ones in sequence are gathered in one
/// block of memory:
///
///              Read in sequence                      Write
///   +--------+ ---------------> +--------+ <----------------------+-----------+
///   | ahead  |                  |  idle  |                        | gathering |
///   +--------+ <--------------- +--------+ ---------------------> +-----------+
///          another place, Forget                drained: another place, a full block, Read,
///                                               ExtendTo, Flush, the end
///
/// Writes reach HDF5 in the order in which they were made. One that HDF5 refuses stays gathered and is tried again at
/// the next occasion.
/// Throws: hdf_Exception for every refusal of HDF5's.
class rfm_HdfByteDataset
{
public:
    /// `chunkBytes` below 1 means 1024.
    static rfm_HdfByteDataset Create(hdf_Group& group, const cow_String& name, int chunkBytes);
    /// Throws: rfm_FileException with the file's name when what is there is no such array, or for update one that can't
    /// grow.
    static rfm_HdfByteDataset Open(const hdf_Group& group, const cow_String& name);

    rfm_HdfByteDataset(const rfm_HdfByteDataset&) = delete;
    rfm_HdfByteDataset& operator=(const rfm_HdfByteDataset&) = delete;
    /// Writes what is gathered; what fails then is one line on standard error.
    ~rfm_HdfByteDataset();

    bool ReadOnly() const noexcept { return m_Dataset.ReadOnly(); }
    /// The end of the last byte, gathered ones counted in.
    std::int64_t Length() const noexcept;
    /// More bytes than are stored: parts that were never written claim length only.
    std::int64_t MostContent() const;
    // Positions are not negative.

    /// Answers how many bytes there were to read.
    int Read(std::int64_t position, char* buffer, int count);
    /// Of no bytes too, it makes the array reach to `position`.
    void Write(std::int64_t position, const char* buffer, int count);
    /// Makes it `length` long at least; new bytes are zero.
    void ExtendTo(std::int64_t length);
    /// Hands everything to HDF5, and HDF5's file to the operating system.
    void Flush();
    /// Drops what was read ahead, and looks at the length again.
    void Refresh();

private:
    enum class Mode
    {
        Idle,
        Ahead,
        Gathering
    };

    explicit rfm_HdfByteDataset(hdf_Dataset dataset);
    void Forget() noexcept;
    void Drain();
    void Grow(std::int64_t length);
    int TakeFromBlock(std::int64_t position, char* buffer, int count) noexcept;
    int ReadRest(std::int64_t position, char* buffer, int count);
    bool ReadAhead(std::int64_t position);
    void ReadThrough(std::int64_t position, char* buffer, int count);
    void WriteThrough(std::int64_t position, const char* buffer, int count);
    void Select(std::int64_t position, int count);
    char* Block();

    hdf_Dataset m_Dataset;
    // Made once and set anew for each transfer: objects of HDF5's cost more than the transfer of a row.
    hdf_Datatype m_MemoryType;
    hdf_Dataspace m_FileSpace;
    hdf_Dataspace m_MemorySpace;
    std::int64_t m_Dimension = 0; // of the dataset, so that HDF5 is asked to grow it only when it must
    int m_MemoryCount = 1;        // elements of m_MemorySpace

    Mode m_Mode = Mode::Idle;
    std::unique_ptr<char[]> m_Block;
    std::int64_t m_BlockStart = 0; // position of the block's first byte
    int m_BlockCount = 0;          // bytes of the block that are in use

    // The last read, and how many bytes came in sequence up to its end.
    std::int64_t m_LastStart = 0;
    std::int64_t m_LastEnd = -1;
    std::int64_t m_RunBytes = 0;
};
