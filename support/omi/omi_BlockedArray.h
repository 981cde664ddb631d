#pragma once

#include "nex_Exception.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

/// A sparse array in blocks of 1 << blockExponent cells. Blocks come to be when a cell of theirs is set; the
/// cells of an absent block, and all cells behind the last block, hold the default value. Only the table of
/// blocks grows with the highest index, by one pointer a block.
/// Throws: nex_AssertException for a negative index, and for an exponent outside 0 to 24.
template <class T> class omi_BlockedArray
{
public:
    omi_BlockedArray(const T& defaultValue, int blockExponent)
        : m_Default(defaultValue),
          m_BlockExponent(CheckedExponent(blockExponent))
    {
    }

    /// The cell at `index`, which may lie behind everything that was set.
    const T& Cell(int index) const
    {
        CheckIndex(index);
        const std::size_t block = BlockOf(index);
        if (block >= m_Blocks.size() || m_Blocks[block] == nullptr) return m_Default;
        return m_Blocks[block][PlaceOf(index)];
    }

    /// Sets one cell, to a value that may be a cell of this array, since blocks never move. Its block is made
    /// when it is absent. When memory does not suffice, no cell has changed.
    void SetCell(int index, const T& value)
    {
        CheckIndex(index);
        const std::size_t block = BlockOf(index);
        if (block >= m_Blocks.size()) m_Blocks.resize(block + 1);
        if (m_Blocks[block] == nullptr) m_Blocks[block] = NewBlock();
        m_Blocks[block][PlaceOf(index)] = value;
    }

    /// Whether the block of `index` was made.
    bool HasBlock(int index) const
    {
        CheckIndex(index);
        return BlockOf(index) < m_Blocks.size() && m_Blocks[BlockOf(index)] != nullptr;
    }

private:
    using Block = std::unique_ptr<T[]>;

    static int CheckedExponent(int exponent)
    {
        if (exponent < 0 || exponent > 24) nex_ThrowAssert("blockExponent >= 0 && blockExponent <= 24");
        return exponent;
    }
    static void CheckIndex(int index)
    {
        if (index < 0) nex_ThrowAssert("index >= 0");
    }
    std::size_t BlockSize() const noexcept { return std::size_t{1} << m_BlockExponent; }
    std::size_t BlockOf(int index) const noexcept
    {
        return static_cast<std::size_t>(index) >> m_BlockExponent;
    }
    std::size_t PlaceOf(int index) const noexcept
    {
        return static_cast<std::size_t>(index) & (BlockSize() - 1);
    }

    Block NewBlock() const
    {
        Block block = std::make_unique<T[]>(BlockSize());
        std::fill_n(block.get(), BlockSize(), m_Default);
        return block;
    }

    T m_Default;
    int m_BlockExponent;
    std::vector<Block> m_Blocks;
};
