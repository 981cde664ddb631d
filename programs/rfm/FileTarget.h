#pragma once

#include "NewFile.h"
#include "Output.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace rfm_tool
{
/// Where exported bytes go: into a new file, or to standard output.
class ByteTarget
{
public:
    ByteTarget() = default;
    ByteTarget(const ByteTarget&) = delete;
    ByteTarget& operator=(const ByteTarget&) = delete;
    virtual ~ByteTarget() = default;

    /// What waits to be written: whoever puts pieces behind it calls `FlushWhenFull` now and then.
    virtual std::string& Pending() = 0;
    virtual void FlushWhenFull() = 0;
    /// Whether writing on is of no use.
    virtual bool IsGone() const { return false; }
};

class StandardTarget : public ByteTarget
{
public:
    explicit StandardTarget(Output& output) : m_Output(output) {}

    std::string& Pending() override { return m_Output.Pending(); }
    void FlushWhenFull() override { m_Output.FlushWhenFull(); }
    bool IsGone() const override { return m_Output.IsGone(); }

private:
    Output& m_Output;
};

/// The bytes of a NewFile, which must live longer. Every refusal of the system is a Failure that names OUT.
class FileTarget : public ByteTarget
{
public:
    explicit FileTarget(const NewFile& file);
    ~FileTarget() override;

    std::string& Pending() override { return m_Pending; }
    void FlushWhenFull() override;
    /// Puts a piece of any size behind what waits.
    void Write(std::string_view bytes);
    /// Puts other bytes in place of the first ones, once these were written.
    void Rewrite(std::string_view firstBytes);
    /// All bytes are with the system. The file may be published then.
    void Close();

private:
    void Flush();

    const NewFile& m_File;
    int m_Descriptor;
    std::string m_Pending;
};
} // namespace rfm_tool
