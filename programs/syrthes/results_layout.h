// How the recorder lays out a run in a database, and how the viewer finds it again. Both compile against the
// field numbers here; the files know fields by name.
//
//   handle 4  OBJECTS      name and handle of every object below: a viewer needs to know only these names
//   handle 5  RUN          one row: what was run, when, and how far it got
//             NODES        place of each node, in the order of their numbers, and its reference if it has one
//             ELEMENTS     four node numbers, counted from 1, and a reference
//             FACES        three node numbers and a reference
//             GROUPS       the name that a reference has
//             INCREMENTS   one row for each increment, with the handle of its array of temperatures
//             PROBES       a tagged stream of the probes' places and histories
#pragma once

#include "rfm.h"

namespace results
{

inline const char* const kMagic = "DEMO";

/// The fields of a table, in the order in which its layout defines them.
struct ObjectFields
{
    enum : int
    {
        name,
        handle
    };
};

struct RunFields
{
    enum : int
    {
        solver,
        caseTitle,
        command,
        startTime, ///< seconds since 1970
        stepSize,
        incrementCount, ///< how many there will be
        state           ///< one of the texts below
    };
};

inline const char* const kRunning = "running";
inline const char* const kComplete = "complete";
inline const char* const kFailed = "failed";

struct NodeFields
{
    enum : int
    {
        x,
        y,
        z,
        reference
    };
};

struct ElementFields
{
    enum : int
    {
        firstCorner, ///< three more follow
        reference = 4
    };
};

struct FaceFields
{
    enum : int
    {
        firstCorner, ///< two more follow
        reference = 3
    };
};

struct GroupFields
{
    enum : int
    {
        kind, ///< "faces" or "volumes"
        reference,
        name
    };
};

struct IncrementFields
{
    enum : int
    {
        number, ///< from 1
        step,
        time, ///< seconds in the model
        lowest,
        highest,
        mean,
        temperature, ///< handle of an array of doubles, one for each node
        stamp        ///< seconds since 1970, taken just before the increment was published
    };
};

/// Identifiers of the items in PROBES. A probe is introduced by its number and place before its first value.
/// A time holds for all values that follow it; a value's identifier is `firstValue` plus the number of the
/// probe, from 0.
struct ProbeItems
{
    enum : int
    {
        probe = 1,
        x,
        y,
        z,
        time,
        firstValue = 100
    };
};

/// The bound layouts. A reader that follows a growing file never learns layouts that come after its open, so
/// all of them are bound before the recorder's first flush.
struct Layouts
{
    explicit Layouts(rfm_Database& database);

    const rfm_TableMetadata& objects;
    const rfm_TableMetadata& run;
    const rfm_TableMetadata& nodes;
    const rfm_TableMetadata& elements;
    const rfm_TableMetadata& faces;
    const rfm_TableMetadata& groups;
    const rfm_TableMetadata& increments;
};

/// Extremes and mean of a field. The sum goes from the first value to the last, so that equal fields give
/// equal means.
struct Summary
{
    double lowest = 0;
    double highest = 0;
    double mean = 0;

    friend bool operator==(const Summary&, const Summary&) = default;
};

/// `count` is at least 1.
Summary Summarise(const double* values, int count);

/// Seconds since 1970, with fractions.
double Now();

} // namespace results
