#pragma once

#include "nex_Exception.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

// An array in blocks of 1 << m_BlockExponent elements. Elements are counted from the start of the block
// table:
//
//   slot:      0        1        2        3      ...  m_TableSize - 1
//          |  null  |  block |  null  |  block |       |  null  |
//                     ^ m_First             ^ m_End
//
// 1. A null slot is a block not yet made; all its elements count as default ones.
// 2. Copies share the whole table until one of them writes; that one gets a table of its own, whose slots
//    share the blocks. A block with a count above 1 is copied by whoever writes into it, and no other block
//    is.
// 3. 0 <= m_First <= m_End <= m_TableSize << m_BlockExponent.

/// One block of an array: how many tables hold it, and its elements.
template <class T> class cow_1DArrayBlock
{
public:
    explicit cow_1DArrayBlock(int size) : m_Elements(new T[static_cast<std::size_t>(size)]()) {}
    /// A copy of a block of `size` elements, with a count of its own.
    cow_1DArrayBlock(const cow_1DArrayBlock& source, int size) : cow_1DArrayBlock(size)
    {
        std::copy_n(source.m_Elements.get(), size, m_Elements.get());
    }

    int m_Count = 1;
    std::unique_ptr<T[]> m_Elements;
};

/// A growable array whose copies share storage: a copy costs a count, a write into a shared array one block
/// and the table. Indices count from the first element. `T` needs a default value and assignment.
/// Throws: nex_AssertException with the text of the condition for an index or size out of range; nothing
/// changed.
/// Threads: all copies that share storage belong to one thread at a time.
template <class T> class cow_1DArray
{
public:
    cow_1DArray() noexcept = default;
    /// `capacity` default elements, none of them made yet. A large array gets about a dozen large blocks.
    explicit cow_1DArray(int capacity)
    {
        if (capacity < 0) nex_ThrowAssert("capacity >= 0");
        int tableSize = kTableStep;
        int exponent = kFirstExponent;
        const auto bits = std::bit_cast<std::uint32_t>(static_cast<float>(capacity));
        const int wanted = static_cast<int>(bits >> 23) - 127 - 3;
        if (wanted > kFirstExponent)
        {
            exponent = wanted;
            tableSize += static_cast<int>(((bits & 0x7FFFFFU) + 0x8FFFFFU) >> 20);
        }
        ReplaceTable(tableSize);
        m_BlockExponent = exponent;
        m_End = capacity;
    }
    cow_1DArray(const cow_1DArray& source) noexcept
        : m_TableSize(source.m_TableSize),
          m_BlockExponent(source.m_BlockExponent),
          m_End(source.m_End),
          m_First(source.m_First),
          m_Count(source.m_Count),
          m_Table(source.m_Table)
    {
        if (m_Count != nullptr) ++*m_Count;
    }
    cow_1DArray(cow_1DArray&& source) noexcept { Swap(source); }
    cow_1DArray& operator=(cow_1DArray source) noexcept
    {
        Swap(source);
        return *this;
    }
    ~cow_1DArray() { Release(); }

    int Size() const noexcept { return m_End - m_First; }

    /// Lets the array have `size` elements. 0 gives all storage back. Otherwise nothing is released: elements
    /// that a smaller size hides are there again, as they were, when it grows back.
    void Grow(int size)
    {
        if (size < 0) nex_ThrowAssert("size >= 0");
        if (size == 0)
        {
            cow_1DArray().Swap(*this);
            return;
        }
        const int exponent = m_End == 0 ? kFirstExponent : m_BlockExponent;
        if (size > std::numeric_limits<int>::max() - m_First) nex_ThrowAssert("m_First + size <= INT_MAX");
        const int end = m_First + size;
        const int needed = BlocksFor(end, exponent);
        if (needed > m_TableSize)
            ReplaceTable(needed + kTableStep);
        else
            Unshare();
        m_BlockExponent = exponent;
        m_End = end;
    }

    /// The element at `index`, for writing. The reference holds until the array is copied, grown or
    /// destroyed.
    T& Get(int index)
    {
        CheckIndex(index);
        Unshare();
        return Writable(m_First + index);
    }
    /// The element at `index`; one that was never written is a default element.
    const T& ConstGet(int index) const { return PartialArrayConstGet(index); }
    /// As `ConstGet`: makes the block when it is missing, for all arrays that share the table.
    const T& PartialArrayConstGet(int index) const
    {
        CheckIndex(index);
        const int position = m_First + index;
        cow_1DArrayBlock<T>*& slot = m_Table[position >> m_BlockExponent];
        if (slot == nullptr) slot = new cow_1DArrayBlock<T>(BlockSize());
        return slot->m_Elements[static_cast<std::size_t>(position & (BlockSize() - 1))];
    }

    /// Makes room for one more element in front of all others and gives it for writing.
    T& GetHead()
    {
        if (m_First == 0)
            MoveBlocksToEnd();
        else
            Unshare();
        T& head = Writable(m_First - 1);
        --m_First;
        return head;
    }

    /// Takes out the first element. Nothing moves; a block that the new head has left is released.
    void RemoveHead()
    {
        if (Size() <= 0) nex_ThrowAssert("Size() > 0");
        Unshare();
        cow_1DArrayBlock<T>*& slot = m_Table[m_First >> m_BlockExponent];
        if (((m_First + 1) & (BlockSize() - 1)) == 0)
            ReleaseBlock(slot);
        else if (slot != nullptr)
            Writable(m_First) = T();
        ++m_First;
    }

    /// Lets the array hold copies of the `size` elements at `source`, from its start.
    void SetFromArray(const T* source, int size)
    {
        if (size < 0) nex_ThrowAssert("size >= 0");
        if (source == nullptr && size > 0) nex_ThrowAssert("source != nullptr || size == 0");
        cow_1DArray filled;
        filled.Grow(size);
        for (int index = 0; index < size; ++index) filled.Writable(index) = source[index];
        Swap(filled);
    }

    void Swap(cow_1DArray& other) noexcept
    {
        std::swap(m_TableSize, other.m_TableSize);
        std::swap(m_BlockExponent, other.m_BlockExponent);
        std::swap(m_End, other.m_End);
        std::swap(m_First, other.m_First);
        std::swap(m_Count, other.m_Count);
        std::swap(m_Table, other.m_Table);
    }

    // How the storage stands, for those who look after its cost.
    int TableSize() const noexcept { return m_TableSize; }
    int BlockExponent() const noexcept { return m_BlockExponent; }
    int End() const noexcept { return m_End; }
    int First() const noexcept { return m_First; }
    /// How many arrays share the table; 0 when there is none.
    int Sharers() const noexcept { return m_Count != nullptr ? *m_Count : 0; }
    /// The block in a slot of the table; null when it is not made.
    const cow_1DArrayBlock<T>* Block(int slot) const
    {
        if (slot < 0 || slot >= m_TableSize) nex_ThrowAssert("slot >= 0 && slot < m_TableSize");
        return m_Table[slot];
    }

private:
    using BlockPointer = cow_1DArrayBlock<T>*;

    static constexpr int kFirstExponent = 4;
    static constexpr int kTableStep = 16;

    int BlockSize() const noexcept { return 1 << m_BlockExponent; }

    static int BlocksFor(int elements, int exponent) noexcept
    {
        return static_cast<int>((std::int64_t{elements} + (std::int64_t{1} << exponent) - 1) >> exponent);
    }

    void CheckIndex(int index) const
    {
        if (index < 0 || index >= Size()) nex_ThrowAssert("index >= 0 && index < Size()");
    }

    // The element at `position`, counted from the start of the table, in a block of this array alone. The
    // table is this array's already.
    T& Writable(int position)
    {
        BlockPointer& slot = m_Table[position >> m_BlockExponent];
        if (slot == nullptr)
            slot = new cow_1DArrayBlock<T>(BlockSize());
        else if (slot->m_Count > 1)
        {
            auto* copy = new cow_1DArrayBlock<T>(*slot, BlockSize());
            --slot->m_Count;
            slot = copy;
        }
        return slot->m_Elements[static_cast<std::size_t>(position & (BlockSize() - 1))];
    }

    static void ReleaseBlock(BlockPointer& slot) noexcept
    {
        if (slot != nullptr && --slot->m_Count == 0) delete slot;
        slot = nullptr;
    }

    void Unshare()
    {
        if (m_Count != nullptr && *m_Count > 1) ReplaceTable(m_TableSize);
    }

    // Gives this array a table of its own of `size` slots, at least as many as it has; the blocks stay
    // shared.
    void ReplaceTable(int size)
    {
        auto table = std::make_unique<BlockPointer[]>(static_cast<std::size_t>(size));
        auto count = std::make_unique<int>(1);
        for (int slot = 0; slot < m_TableSize; ++slot)
        {
            table[static_cast<std::size_t>(slot)] = m_Table[slot];
            if (m_Table[slot] != nullptr) ++m_Table[slot]->m_Count;
        }
        Release();
        m_Table = table.release();
        m_Count = count.release();
        m_TableSize = size;
    }

    void Release() noexcept
    {
        if (m_Count == nullptr || --*m_Count > 0) return;
        for (int slot = 0; slot < m_TableSize; ++slot) ReleaseBlock(m_Table[slot]);
        delete[] m_Table;
        delete m_Count;
    }

    // Leaves all free slots in front, and m_First just behind their last element, so that many heads fit
    // before blocks move again.
    void MoveBlocksToEnd()
    {
        const int exponent = m_End == 0 ? kFirstExponent : m_BlockExponent;
        const int used = BlocksFor(m_End, exponent);
        const int tableSize = used == m_TableSize ? m_TableSize + kTableStep : m_TableSize;
        const int freeSlots = tableSize - used;
        const std::int64_t shift = std::int64_t{freeSlots} << exponent;
        if (m_End + shift > std::numeric_limits<int>::max()) nex_ThrowAssert("m_End + shift <= INT_MAX");
        if (tableSize > m_TableSize)
            ReplaceTable(tableSize);
        else
            Unshare();
        for (int slot = used; slot < tableSize; ++slot) ReleaseBlock(m_Table[slot]);
        std::rotate(m_Table, m_Table + used, m_Table + tableSize);
        m_BlockExponent = exponent;
        m_First = static_cast<int>(shift);
        m_End += static_cast<int>(shift);
    }

    int m_TableSize = 0;
    int m_BlockExponent = 0;
    int m_End = 0;
    int m_First = 0;
    int* m_Count = nullptr;
    BlockPointer* m_Table = nullptr;
};
