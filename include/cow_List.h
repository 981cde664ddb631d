#pragma once

#include "cow_1DArrayList.h"

#include <algorithm>

/// A list of values: `cow_1DArrayList` with all the changes. Taking from the front moves nothing, adding in
/// front moves blocks now and then, changes in the middle move the elements behind. A copy costs a count.
/// Throws: nex_AssertException for an index out of range, or for taking from an empty list; nothing has
/// changed.
/// Threads: all copies that share storage belong to one thread at a time.
template <class T> class cow_List : public cow_1DArrayList<T>
{
public:
    cow_List() = default;
    cow_List(const cow_1DArrayList<T>& source) : cow_1DArrayList<T>(source) {}

    using cow_1DArrayList<T>::Append;
    /// Adds the elements of `other`, which may be this list, behind all others.
    void Append(const cow_List& other)
    {
        const int added = other.Count(); // taken first: `other` may grow with this list
        for (int index = 0; index < added; ++index) Append(other.ConstGet(index));
    }

    /// Adds a copy of `value`, which may be an element of this list, in front of all others.
    void Prepend(const T& value)
    {
        T copy(value);
        m_Array.GetHead() = std::move(copy);
        ++m_Count;
    }

    /// Adds a copy of `value` so that it gets `index`, and what stood there and behind it moves up by one. An
    /// index equal to the count appends.
    void InsertAfter(int index, const T& value)
    {
        if (index < 0 || index > m_Count) nex_ThrowAssert("index >= 0 && index <= Count()");
        T copy(value);
        if (index == m_Count)
        {
            this->AppendCopy(copy);
            return;
        }
        T last(m_Array.ConstGet(m_Count - 1));
        this->AppendCopy(last);
        for (int target = m_Count - 2; target > index; --target)
            m_Array.Get(target) = m_Array.ConstGet(target - 1);
        m_Array.Get(index) = std::move(copy);
    }

    void RemoveIndex(int index)
    {
        if (index < 0 || index >= m_Count) nex_ThrowAssert("index >= 0 && index < Count()");
        for (int target = index; target + 1 < m_Count; ++target)
            m_Array.Get(target) = m_Array.ConstGet(target + 1);
        DropLast();
    }
    void RemoveFirst()
    {
        if (m_Count == 0) nex_ThrowAssert("Count() > 0");
        m_Array.RemoveHead();
        --m_Count;
        if (m_Count == 0) m_Array.Grow(0);
    }
    void RemoveLast()
    {
        if (m_Count == 0) nex_ThrowAssert("Count() > 0");
        DropLast();
    }
    /// Takes out the first element that equals `value`; when there is none, nothing happens.
    void Remove(const T& value)
    {
        for (int index = 0; index < m_Count; ++index)
        {
            if (!(m_Array.ConstGet(index) == value)) continue;
            RemoveIndex(index);
            return;
        }
    }

    /// Orders the elements by `<`; equal ones keep their order.
    void Sort()
    {
        if (m_Count < 2) return;
        const auto sorted = std::make_unique<T[]>(static_cast<std::size_t>(m_Count));
        for (int index = 0; index < m_Count; ++index)
            sorted[static_cast<std::size_t>(index)] = m_Array.ConstGet(index);
        std::stable_sort(sorted.get(), sorted.get() + m_Count);
        m_Array.SetFromArray(sorted.get(), m_Count);
    }

private:
    using cow_1DArrayList<T>::m_Array;
    using cow_1DArrayList<T>::m_Count;

    // The element is cleared, so that what it held goes now, and the array is told its new size.
    void DropLast()
    {
        m_Array.Get(m_Count - 1) = T();
        m_Array.Grow(m_Count - 1);
        --m_Count;
    }
};
