#pragma once

// What tests of recovered databases ask: which objects are as they were, and what was told.

#include "Comparison.h"
#include "DamageList.h"
#include "FileWalk.h"
#include "Salvage.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

/// Collects the pairs that are equal.
class EqualObjects : public rfm_tool::ComparisonListener
{
public:
    void Only(const rfm_tool::Object&, bool) override {}
    void Layout(const std::string&, const std::string&) override {}
    void BeginPair(const rfm_tool::Object&, const rfm_tool::Object&) override {}
    void Value(const rfm_tool::ObjectSummary&, const rfm_tool::Difference&) override {}
    void EndPair(const rfm_tool::ObjectSummary& pair) override
    {
        if (pair.differences == 0) handles.insert(static_cast<int>(pair.a.handle.Value()));
    }
    bool IsGone() const override { return false; }

    std::set<int> handles;
};

/// The handles of the objects of `sound` that are the same in `out`. Fails the test when `out` is damaged, or does not
/// open.
inline std::set<int> EqualHandles(const std::string& sound, const std::string& out)
{
    rfm_tool::FileImage image(out);
    rfm_tool::DamageList damages(1);
    rfm_tool::FileWalk(image, damages).Run();
    for (const rfm_tool::Damage& damage : damages.Kept()) ADD_FAILURE() << damage.Line();
    rfm_tool::DatabaseFile first(sound);
    rfm_tool::DatabaseFile second(out);
    EqualObjects equal;
    rfm_tool::ComparisonOptions options;
    options.pairing = rfm_tool::Pairing::ByHandle;
    rfm_tool::CompareDatabases(first, second, options, equal);
    return equal.handles;
}

inline std::string LinesOf(const rfm_tool::LossList& losses)
{
    std::string lines;
    for (const rfm_tool::Loss& loss : losses.Kept()) lines += loss.Line() + "\n";
    return lines;
}
