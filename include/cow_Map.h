#pragma once

#include "cow_Btree.h"

/// One entry of a `cow_Map`.
template <class K, class V> using cow_MapNode = cow_BtreeNode<K, V>;

/// The ordered map in the shape that callers use. A copy costs a count; a change copies one path of what is
/// shared.
/// Threads: all copies that share nodes belong to one thread at a time.
template <class K, class V> class cow_Map
{
public:
    /// Gives `key` the value, whether it had one or not; true when it is new.
    bool Insert(const K& key, const V& value)
    {
        if (m_Tree.InsertUnlessMember(key, value)) return true;
        *m_Tree.Find(key) = value;
        return false;
    }
    bool Remove(const K& key) { return m_Tree.Remove(key); }
    bool IsMember(const K& key) const { return m_Tree.IsMember(key); }
    /// The value of `key`; `V()` when it is not there.
    const V& ConstGet(const K& key) const { return m_Tree.ConstGet(key); }
    int Count() const noexcept { return m_Tree.Count(); }
    bool IsEmpty() const noexcept { return Count() == 0; }
    /// The tree below, for cow_BtreeIterator and cow_BtreeUtils.
    const cow_Btree<K, V>& Tree() const noexcept { return m_Tree; }

    cow_BtreeIterator<K, V> begin() const { return m_Tree.begin(); }
    omi_BtreeEnd end() const noexcept { return {}; }

private:
    cow_Btree<K, V> m_Tree;
};
