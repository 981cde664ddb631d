#include "results_layout.h"

#include <algorithm>
#include <chrono>

namespace results
{

namespace
{

constexpr int kVersion = 1;

const rfm_TableMetadata& BindObjects(rfm_Database& database)
{
    rfm_TableMetadata layout("OBJECTS", kVersion);
    layout.DefineStringField("name");
    layout.DefineHandleField("handle");
    return database.Bind(layout);
}

const rfm_TableMetadata& BindRun(rfm_Database& database)
{
    rfm_TableMetadata layout("RUN", kVersion);
    layout.DefineStringField("solver");
    layout.DefineStringField("case");
    layout.DefineStringField("command");
    layout.DefineDoubleField("startTime");
    layout.DefineDoubleField("stepSize");
    layout.DefineIntField("incrementCount");
    layout.DefineStringField("state");
    return database.Bind(layout);
}

const rfm_TableMetadata& BindNodes(rfm_Database& database)
{
    rfm_TableMetadata layout("NODES", kVersion);
    layout.DefineDoubleField("x");
    layout.DefineDoubleField("y");
    layout.DefineDoubleField("z");
    layout.DefineIntField("reference");
    return database.Bind(layout);
}

const rfm_TableMetadata& BindElements(rfm_Database& database)
{
    rfm_TableMetadata layout("ELEMENTS", kVersion);
    layout.DefineIntField("node1");
    layout.DefineIntField("node2");
    layout.DefineIntField("node3");
    layout.DefineIntField("node4");
    layout.DefineIntField("reference");
    return database.Bind(layout);
}

const rfm_TableMetadata& BindFaces(rfm_Database& database)
{
    rfm_TableMetadata layout("FACES", kVersion);
    layout.DefineIntField("node1");
    layout.DefineIntField("node2");
    layout.DefineIntField("node3");
    layout.DefineIntField("reference");
    return database.Bind(layout);
}

const rfm_TableMetadata& BindGroups(rfm_Database& database)
{
    rfm_TableMetadata layout("GROUPS", kVersion);
    layout.DefineStringField("kind");
    layout.DefineIntField("reference");
    layout.DefineStringField("name");
    return database.Bind(layout);
}

const rfm_TableMetadata& BindIncrements(rfm_Database& database)
{
    rfm_TableMetadata layout("INCREMENTS", kVersion);
    layout.DefineIntField("number");
    layout.DefineIntField("step");
    layout.DefineDoubleField("time");
    layout.DefineDoubleField("lowest");
    layout.DefineDoubleField("highest");
    layout.DefineDoubleField("mean");
    layout.DefineHandleField("temperature");
    layout.DefineDoubleField("stamp");
    return database.Bind(layout);
}

} // namespace

Layouts::Layouts(rfm_Database& database)
    : objects(BindObjects(database)),
      run(BindRun(database)),
      nodes(BindNodes(database)),
      elements(BindElements(database)),
      faces(BindFaces(database)),
      groups(BindGroups(database)),
      increments(BindIncrements(database))
{
}

Summary Summarise(const double* values, int count)
{
    Summary summary{values[0], values[0], 0};
    double sum = 0;
    for (int i = 0; i < count; ++i)
    {
        summary.lowest = std::min(summary.lowest, values[i]);
        summary.highest = std::max(summary.highest, values[i]);
        sum += values[i];
    }
    summary.mean = sum / count;
    return summary;
}

double Now()
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
}

} // namespace results
