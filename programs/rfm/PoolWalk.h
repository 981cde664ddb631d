#pragma once

#include "DamageList.h"
#include "SpaceBytes.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace rfm_tool
{
/// The pool of strings of a file that may be damaged: where its records are.
class StringRecords
{
public:
    enum class Answer
    {
        Record,      // a text begins there
        Nothing,     // none does
        NobodyKnows, // the pool can't be read that far
    };

    /// Walks the records; `isWhole`: the whole space can be read.
    void Walk(SpaceBytes& space, bool isWhole, DamageList& damages);
    Answer Ask(double reference) const;
    /// The text that `reference` stands for, cut at 64 KiB; empty when there is none.
    std::string Text(double reference, SpaceBytes& space) const;
    std::int64_t Count() const noexcept { return m_Count; }

private:
    bool IsRecord(std::int64_t offset) const;

    std::vector<bool> m_Starts; // by offset / 4: whether a record begins there
    std::int64_t m_KnownEnd = 0;
    bool m_IsComplete = false; // nothing lies behind m_KnownEnd
    std::int64_t m_Count = 0;
};

/// "found" of a reference that leads nowhere.
std::string ReferenceText(double reference);

/// A layout: what its rows look like.
struct Layout
{
    std::string name;
    std::vector<int> fieldTypes; // in the order of the rows
    bool isSound = true;         // rows can be read by it

    int WordCount() const { return (static_cast<int>(fieldTypes.size()) + 31) / 32; }
    std::int64_t RowBytes() const;
};
/// Bytes of a field in a row; 0 for a type that is none.
int FieldBytes(int type);

/// The pool of layouts of a file that may be damaged.
class LayoutRecords
{
public:
    void Walk(SpaceBytes& space, bool isWhole, const StringRecords& strings, SpaceBytes& texts,
              DamageList& damages);
    /// Null when no record begins there.
    const Layout* Find(std::int64_t offset) const;
    /// Whether what is not found may still be there, in a part that can't be read.
    bool IsComplete() const noexcept { return m_IsComplete; }
    std::size_t Count() const noexcept { return m_Layouts.size(); }

private:
    void WalkRecord(SpaceBytes& space, std::int64_t offset, int length, const StringRecords& strings,
                    SpaceBytes& texts, DamageList& damages);

    std::map<std::int64_t, Layout> m_Layouts;
    std::map<std::string, std::int64_t> m_Names;
    bool m_IsComplete = false;
};
} // namespace rfm_tool
