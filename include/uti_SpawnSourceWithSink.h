#pragma once

#include "uti_SpawnSource.h"

/// A child with pipes both ways: what is written to the sink is its standard input, what it prints comes from the source.
class RFM_EXPORT uti_SpawnSourceWithSink : public uti_SpawnSource
{
public:
    /// Starts the program at the given path, which is not searched for; otherwise as `uti_SpawnSource`.
    uti_SpawnSourceWithSink(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                            uti_Redirection& redirection, const cow_Map<cow_String, cow_String>& environment);
    /// Closes the sink first: most children leave when their input ends.
    ~uti_SpawnSourceWithSink() override;

    /// With more than 0 seconds, the sink is closed first.
    int Reap(int seconds) override;
    void Detach() override;

    /// The end to write to, -1 when it is closed. It stays this object's. A write to a child that has gone raises SIGPIPE,
    /// unless utl_BinOStream does it or the program takes care.
    int SinkDescriptor() const noexcept { return m_Sink.Get(); }
    /// Ends the child's input.
    void CloseSink() noexcept { m_Sink.Reset(); }

protected:
    void spawnSourceWithSink(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                             uti_Redirection& redirection,
                             const cow_Map<cow_String, cow_String>& environment);

private:
    utl_Descriptor m_Sink;
};
