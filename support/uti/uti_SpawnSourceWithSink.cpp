#include "uti_SpawnSourceWithSink.h"

#include "uti_Pipe.h"

uti_SpawnSourceWithSink::uti_SpawnSourceWithSink(const cow_String& program,
                                                 const cow_1DArrayList<cow_String>& arguments,
                                                 uti_Redirection& redirection,
                                                 const cow_Map<cow_String, cow_String>& environment)
{
    spawnSourceWithSink(program, arguments, redirection, environment);
}

uti_SpawnSourceWithSink::~uti_SpawnSourceWithSink()
{
    m_Sink.Reset(); // first: the child leaves when its input ends; the bases close the source and wait
}

void uti_SpawnSourceWithSink::spawnSourceWithSink(const cow_String& program,
                                                  const cow_1DArrayList<cow_String>& arguments,
                                                  uti_Redirection& redirection,
                                                  const cow_Map<cow_String, cow_String>& environment)
{
    uti_Pipe input = uti_MakePipe();
    SpawnWithInput(input.readEnd.Get(), program, arguments, redirection, environment);
    m_Sink = std::move(input.writeEnd);
}

int uti_SpawnSourceWithSink::Reap(int seconds)
{
    if (seconds > 0) m_Sink.Reset();
    return uti_SpawnSource::Reap(seconds);
}

void uti_SpawnSourceWithSink::Detach()
{
    m_Sink.Reset();
    uti_SpawnSource::Detach();
}
