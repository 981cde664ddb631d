#pragma once

#include "rfm_FileRepr.h"
#include "rfm_HdfByteDataset.h"
#include "utl_FileAccess.h"

/// A database file inside an HDF5 file: byte p of the one is element p of a dataset of bytes in the other. Nothing of
/// the database is told in HDF5's terms.
class rfm_FileReprHdf : public rfm_FileRepr
{
public:
    /// `access`: 0 or 1 opens the dataset, 2 creates it. The dataset keeps its file open.
    /// Throws: nex_AssertException for any other `access`; rfm_FileException when there is no dataset of bytes of that
    /// name; hdf_Exception.
    rfm_FileReprHdf(const cow_String& name, hdf_Group& group, const cow_String& datasetName,
                    utl_FileAccess access);

    bool ReadOnly() const override { return m_Dataset.ReadOnly(); }
    void Seek(utl_FileOffset position) override { m_Position = position; }
    /// Makes the dataset as long as the file says it is, and hands everything to the operating system, HDF5's own
    /// structures too: without them the file of a writer that was killed would not open.
    void Flush() override;
    void Extend(utl_FileOffset delta) override { ExtendBy(delta); }
    /// kept: answers `count` and moves by it, wherever the dataset ends; the rest of `buffer` stays as it is.
    /// Tests: ANewFileReadsNothingAndMoves, AReadAcrossTheEndTakesWhatIsThereAndMovesByAll.
    int Read(char* buffer, int count) override;
    /// kept: the logical size does not move. Test: AWritePastTheEndLeavesTheLogicalSize.
    int Write(const char* buffer, int count) override;
    bool ExtendBy(utl_FileOffset delta) override;
    void TrimToLength() override;

    int ReadUpToEnd(char* buffer, int count) override;
    void RaiseLogicalLength(utl_FileOffset end) override;
    utl_FileOffset MediumSize() const override { return m_Dataset.Length(); }
    bool MayHold(utl_FileOffset end) const override { return end <= m_Dataset.MostContent(); }
    void Refresh() override { m_Dataset.Refresh(); }

private:
    void CheckWritable() const;

    rfm_HdfByteDataset m_Dataset;
};
