#pragma once

#include "cow_1DArray.h"

#include <iterator>
#include <utility>

/// A list of values as results and arguments carry it: a count and a shared array. A copy costs a count.
/// Throws: nex_AssertException for an index out of range.
/// Threads: all copies that share storage belong to one thread at a time.
template <class T> class cow_1DArrayList
{
public:
    /// Walks the elements in a loop; the list must not change meanwhile.
    class RangeIterator
    {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = T;
        using difference_type = int;
        using pointer = const T*;
        using reference = const T&;

        RangeIterator(const cow_1DArrayList& list, int index) noexcept : m_List(&list), m_Index(index) {}
        const T& operator*() const { return m_List->ConstGet(m_Index); }
        RangeIterator& operator++() noexcept
        {
            ++m_Index;
            return *this;
        }
        RangeIterator operator++(int) noexcept
        {
            const RangeIterator before(*this);
            ++m_Index;
            return before;
        }
        bool operator==(const RangeIterator& other) const noexcept { return m_Index == other.m_Index; }

    private:
        const cow_1DArrayList* m_List;
        int m_Index;
    };

    int Count() const noexcept { return m_Count; }
    bool IsEmpty() const noexcept { return m_Count == 0; }

    /// Adds a copy of `value`, which may be an element of this list, behind all others.
    void Append(const T& value)
    {
        T copy(value);
        AppendCopy(copy);
    }
    /// The element at `index`, for writing; shared storage is copied first, one block of it.
    T& Get(int index) { return m_Array.Get(index); }
    const T& ConstGet(int index) const { return m_Array.ConstGet(index); }
    /// Takes out everything and gives the storage back.
    void Clear()
    {
        m_Array.Grow(0);
        m_Count = 0;
    }
    /// The array that the list stands on.
    const cow_1DArray<T>& Array() const noexcept { return m_Array; }

    RangeIterator begin() const noexcept { return RangeIterator(*this, 0); }
    RangeIterator end() const noexcept { return RangeIterator(*this, m_Count); }

protected:
    // Invariant: m_Array.Size() == m_Count between calls, and the array is empty when the count is 0.
    void AppendCopy(T& copy)
    {
        m_Array.Grow(m_Count + 1);
        try
        {
            m_Array.Get(m_Count) = std::move(copy);
        }
        catch (...)
        {
            m_Array.Grow(m_Count);
            throw;
        }
        ++m_Count;
    }

    int m_Count = 0;
    cow_1DArray<T> m_Array;
};

/// Walks a list that stays as it was when the walk began: it shares the list's storage, so a later change of
/// the list costs a block and isn't seen.
template <class T> class cow_1DArrayIter
{
public:
    /// Stands on the first element.
    explicit cow_1DArrayIter(const cow_1DArrayList<T>& list) : m_List(list) {}

    void First() noexcept { m_Index = 0; }
    void Next() noexcept { ++m_Index; }
    bool AtEnd() const noexcept { return m_Index >= m_List.Count(); }
    /// The element; at the end it throws nex_AssertException.
    const T& Value() const { return m_List.ConstGet(m_Index); }
    int Index() const noexcept { return m_Index; }

private:
    cow_1DArrayList<T> m_List;
    int m_Index = 0;
};
