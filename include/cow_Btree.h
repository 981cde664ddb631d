#pragma once

#include "cow_COW.h"
#include "cow_List.h"
#include "omi_Btree.h"

#include <algorithm>
#include <utility>
#include <vector>

// A height-balanced binary tree, in spite of its name, whose copies share nodes. A change copies the nodes on
// its path that are shared, and no other. As in `omi_Btree` there are only single rotations and no proven
// bound of the depth, and so nothing here recurses.

template <class K, class V> struct cow_BtreeNode;
/// The handle that holds a subtree; empty for none.
template <class K, class V>
using cow_BtreeLink = cow_ArrayCOW<cow_BtreeNode<K, V>, cow_Direct<cow_BtreeNode<K, V>>>;

/// One entry of a `cow_Btree`.
template <class K, class V> struct cow_BtreeNode
{
    cow_BtreeNode(const K& itsKey, const V& itsValue) : key(itsKey), value(itsValue) {}
    cow_BtreeNode(const cow_BtreeNode& source)
        : key(source.key),
          value(source.value),
          left(source.left),
          right(source.right),
          height(source.height)
    {
    }
    cow_BtreeNode& operator=(const cow_BtreeNode&) = delete;
    ~cow_BtreeNode()
    {
        Dismantle(std::move(left));
        Dismantle(std::move(right));
    }

    K key;
    V value;
    cow_BtreeLink<K, V> left;
    cow_BtreeLink<K, V> right;
    int height = 0; // a leaf has 0

private:
    // Releases a subtree without recursion: as long as its top is ours alone, left children that are ours
    // alone rotate up, so every node that is deleted has no children left.
    static void Dismantle(cow_BtreeLink<K, V> top)
    {
        while (top.Count() == 1)
        {
            cow_BtreeNode& node = top.Get();
            cow_BtreeLink<K, V> next;
            if (node.left.Count() == 1)
            {
                next = std::move(node.left);
                cow_BtreeNode& raised = next.Get();
                node.left = std::move(raised.right);
                raised.right = std::move(top);
            }
            else
            {
                node.left = cow_BtreeLink<K, V>();
                next = std::move(node.right);
            }
            top = std::move(next);
        }
    }
};

/// What a loop over a tree sees: `for (auto [key, value] : tree)`.
template <class K, class V> struct cow_BtreeEntry
{
    const K& key;
    const V& value;
};

template <class K, class V> class cow_Btree;

/// Walks a tree in ascending order of its keys. It shares the tree's nodes, so it sees the tree as it was
/// when the walk began.
template <class K, class V> class cow_BtreeIterator
{
public:
    using Node = cow_BtreeNode<K, V>;

    /// Stands on the first entry.
    explicit cow_BtreeIterator(const cow_Btree<K, V>& tree) : m_Root(tree.m_Root) { First(); }

    void First()
    {
        m_Stack.clear();
        PushLeftSpine(m_Root);
    }
    /// Moves to the next entry. Must not be called at the end.
    void Next()
    {
        const Node* node = m_Stack.back();
        m_Stack.pop_back();
        PushLeftSpine(node->right);
    }
    bool AtEnd() const noexcept { return m_Stack.empty(); }

    const K& Key() const { return m_Stack.back()->key; }
    const V& Value() const { return m_Stack.back()->value; }

    cow_BtreeEntry<K, V> operator*() const { return {Key(), Value()}; }
    cow_BtreeIterator& operator++()
    {
        Next();
        return *this;
    }
    bool operator==(omi_BtreeEnd) const noexcept { return AtEnd(); }

private:
    void PushLeftSpine(const cow_BtreeLink<K, V>& top)
    {
        for (const auto* link = &top; !link->IsNull(); link = &link->ConstGet().left)
            m_Stack.push_back(&link->ConstGet());
    }

    cow_BtreeLink<K, V> m_Root;
    std::vector<const Node*> m_Stack; // the nodes whose left part is done and whose own turn is still to come
};

/// An ordered map whose copies share nodes: a copy costs a count, a change the shared nodes on one path. `V`
/// needs a default value.
/// Threads: all copies that share nodes belong to one thread at a time.
template <class K, class V> class cow_Btree
{
public:
    int Count() const noexcept { return m_Members; }
    bool IsMember(const K& key) const { return ConstFind(key) != nullptr; }

    /// Adds an entry; a key that is there already keeps its value, and the answer is false.
    bool InsertUnlessMember(const K& key, const V& value)
    {
        if (IsMember(key))
            return false; // before the path is made writable, so that nothing is copied in vain
        Link added(new Node(key, value));
        Path path;
        Link* link = WritablePath(key, path);
        *link = std::move(added);
        ++m_Members;
        RebalanceUpwards(path);
        return true;
    }

    /// Takes out the entry of `key`; false when there is none.
    bool Remove(const K& key)
    {
        if (!IsMember(key)) return false;
        Path path;
        Link* link = WritablePath(key, path);
        ReplaceByRest(*link);
        --m_Members;
        Rebalance(*link);
        RebalanceUpwards(path);
        return true;
    }

    /// The value of `key` for writing; null when it is not there. It holds until the tree is copied or
    /// changed.
    V* Find(const K& key)
    {
        if (!IsMember(key)) return nullptr;
        Path path;
        return &WritablePath(key, path)->Get().value;
    }
    /// The value of `key`; null when it is not there.
    const V* ConstFind(const K& key) const
    {
        const Link* link = &m_Root;
        while (!link->IsNull())
        {
            const Node& node = link->ConstGet();
            const int order = omi_CompareKeys(key, node.key);
            if (order == 0) return &node.value;
            link = order < 0 ? &node.left : &node.right;
        }
        return nullptr;
    }

    /// The value of `key` for writing. When the key is not there it is this tree's default element, which
    /// starts as `V()` and keeps what is written.
    V& Get(const K& key)
    {
        V* value = Find(key);
        return value != nullptr ? *value : m_Default;
    }
    /// The value of `key`; the default element when the key is not there.
    const V& ConstGet(const K& key) const
    {
        const V* value = ConstFind(key);
        return value != nullptr ? *value : m_Default;
    }

    void Clear()
    {
        m_Root = Link();
        m_Members = 0;
    }

    cow_BtreeIterator<K, V> begin() const { return cow_BtreeIterator<K, V>(*this); }
    omi_BtreeEnd end() const noexcept { return {}; }
    /// The height of the tree: -1 when it is empty, 0 for a single entry.
    int Height() const noexcept { return m_Root.IsNull() ? -1 : m_Root.ConstGet().height; }

private:
    friend class cow_BtreeIterator<K, V>;
    using Node = cow_BtreeNode<K, V>;
    using Link = cow_BtreeLink<K, V>;
    // The links of the nodes from the root down to where a change happens. Each lies in the node before it,
    // and all those nodes are this tree's alone, so none of them moves while the path is in use.
    using Path = std::vector<Link*>;

    // The link of `key`, empty when the key is not there; `path` gets the links above it. What was shared on
    // the way is copied; what the tree holds stays the same.
    Link* WritablePath(const K& key, Path& path)
    {
        path.reserve(kUsualDepth);
        Link* link = &m_Root;
        while (!link->IsNull())
        {
            const int order = omi_CompareKeys(key, link->ConstGet().key);
            if (order == 0)
            {
                link->Get();
                break;
            }
            Node& node = link->Get();
            path.push_back(link);
            link = order < 0 ? &node.left : &node.right;
        }
        return link;
    }

    // kept: a missing child and a leaf both count 0. Test: AChainOfTwoBelowANodeStaysAndAChainOfThreeRotates.
    static int HeightOf(const Link& link) noexcept { return link.IsNull() ? 0 : link.ConstGet().height; }

    static void UpdateHeight(Node& node) noexcept
    {
        const int left = node.left.IsNull() ? 0 : node.left.ConstGet().height + 1;
        const int right = node.right.IsNull() ? 0 : node.right.ConstGet().height + 1;
        node.height = std::max(left, right);
    }

    // kept: no double rotation; a left-right shape stays as deep as it was.
    // Test: ALeftRightShapeKeepsItsDepth.
    static void Rebalance(Link& link)
    {
        if (link.IsNull()) return;
        const Node& node = link.ConstGet();
        const int difference = HeightOf(node.right) - HeightOf(node.left);
        if (difference >= 2)
            Rotate(link, &Node::right, &Node::left);
        else if (difference < -1)
            Rotate(link, &Node::left, &Node::right);
    }

    // Raises the child on the `heavy` side to the top. Both nodes are made writable before anything moves.
    static void Rotate(Link& link, Link Node::*heavy, Link Node::*light)
    {
        Node& old = link.Get();
        Node& raised = (old.*heavy).Get();
        Link top = std::move(old.*heavy);
        old.*heavy = std::move(raised.*light);
        UpdateHeight(old);
        raised.*light = std::move(link);
        UpdateHeight(raised);
        link = std::move(top);
    }

    static void RebalanceUpwards(Path& path)
    {
        for (; !path.empty(); path.pop_back())
        {
            UpdateHeight(path.back()->Get());
            Rebalance(*path.back());
        }
    }

    // Takes the node of `link` out and puts what remains of its subtree in its place.
    static void ReplaceByRest(Link& link)
    {
        Node& removed = link.Get();
        Link rest;
        if (removed.right.IsNull())
            rest = std::move(removed.left);
        else if (removed.left.IsNull())
            rest = std::move(removed.right);
        else
            rest = TakeSmallest(removed);
        link = std::move(rest);
    }

    // The smallest node on the right of `removed`, with the rest of both sides below it.
    static Link TakeSmallest(Node& removed)
    {
        Path spine;
        Link* smallest = &removed.right;
        for (; !smallest->Get().left.IsNull(); smallest = &smallest->Get().left) spine.push_back(smallest);
        Link top = std::move(*smallest);
        Node& node = top.Get();
        *smallest = std::move(node.right);
        for (; !spine.empty(); spine.pop_back()) UpdateHeight(spine.back()->Get());
        node.right = std::move(removed.right);
        node.left = std::move(removed.left);
        UpdateHeight(node);
        return top;
    }

    static constexpr std::size_t kUsualDepth = 32;

    Link m_Root;
    int m_Members = 0;
    V m_Default = V();
};

/// The keys or the values of a tree as a list, in the order of the keys.
template <class K, class V> struct cow_BtreeUtils
{
    static cow_List<K> cow_Keys(const cow_Btree<K, V>& tree)
    {
        cow_List<K> keys;
        for (const auto [key, value] : tree) keys.Append(key);
        return keys;
    }
    static cow_List<V> cow_Values(const cow_Btree<K, V>& tree)
    {
        cow_List<V> values;
        for (const auto [key, value] : tree) values.Append(value);
        return values;
    }
};
