#pragma once

#include "cow_String.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

// A height-balanced binary tree, in spite of its name. Only single rotations exist, so its depth has no
// proven bound. Nothing here recurses, neither search nor change, copy nor destruction: an order of changes
// that made a tree deep would cost time and never the stack.

/// Order of two keys: below 0, 0 or above 0. Any type with `<` will do.
template <class K> int omi_CompareKeys(const K& left, const K& right)
{
    if (left < right) return -1;
    return right < left ? 1 : 0;
}

/// Order of two texts: `atr_Compare`, so that it follows `atr_getNaturalOrder()`.
inline int omi_CompareKeys(const cow_String& left, const cow_String& right) noexcept
{
    return atr_Compare(left, right);
}

/// One entry of an `omi_Btree`. The tree owns it; its address stays until its key is removed.
template <class K, class V> struct omi_BtreeNode
{
    omi_BtreeNode(const K& itsKey, const V& itsValue) : value(itsValue), key(itsKey) {}

    /// The node of `wanted` in the subtree of this node; null when it is not there.
    omi_BtreeNode* Find(const K& wanted)
    {
        omi_BtreeNode* node = this;
        while (node != nullptr)
        {
            const int order = omi_CompareKeys(wanted, node->key);
            if (order == 0) return node;
            node = order < 0 ? node->left : node->right;
        }
        return nullptr;
    }
    const omi_BtreeNode* Find(const K& wanted) const
    {
        return const_cast<omi_BtreeNode*>(this)->Find(wanted);
    }

    V value;
    K key;
    omi_BtreeNode* left = nullptr;
    omi_BtreeNode* right = nullptr;
    int height = 0; // a leaf has 0
};

/// What a loop over a tree sees: `for (auto [key, value] : tree)`.
template <class K, class V> struct omi_BtreeEntry
{
    const K& key;
    V& value;
};

template <class K, class V> class omi_Btree;

/// Walks a tree in ascending order of its keys. The tree must outlive it and keep its keys meanwhile; values
/// may change.
template <class K, class V> class omi_BtreeIterator
{
public:
    using Node = omi_BtreeNode<K, V>;

    /// Stands on the first entry.
    explicit omi_BtreeIterator(const omi_Btree<K, V>& tree) : m_Tree(&tree) { First(); }

    void First()
    {
        m_Stack.clear();
        PushLeftSpine(m_Tree->root);
    }
    /// Moves to the next entry. Must not be called at the end.
    void Next()
    {
        if (m_Stack.back()->right != nullptr)
        {
            PushLeftSpine(m_Stack.back()->right);
            return;
        }
        const Node* popped = nullptr;
        do
        {
            popped = m_Stack.back();
            m_Stack.pop_back();
        } while (!m_Stack.empty() && m_Stack.back()->right == popped);
    }
    bool AtEnd() const noexcept { return m_Stack.empty(); }

    const K& Key() const { return m_Stack.back()->key; }
    const V& Value() const { return m_Stack.back()->value; }

private:
    template <class, class, class> friend class omi_BtreeRangeIterator;

    void PushLeftSpine(Node* node)
    {
        for (; node != nullptr; node = node->left) m_Stack.push_back(node);
    }

    const omi_Btree<K, V>* m_Tree;
    std::vector<Node*> m_Stack; // from the root down to the entry, without those whose left part is done
};

/// The end of a loop over a tree.
struct omi_BtreeEnd
{
};

/// What `begin()` of a tree gives; `Shown` is `V` or `const V`.
template <class K, class V, class Shown> class omi_BtreeRangeIterator
{
public:
    explicit omi_BtreeRangeIterator(const omi_Btree<K, V>& tree) : m_Walk(tree) {}
    omi_BtreeEntry<K, Shown> operator*() const
    {
        auto* node = m_Walk.m_Stack.back();
        return {node->key, node->value};
    }
    omi_BtreeRangeIterator& operator++()
    {
        m_Walk.Next();
        return *this;
    }
    bool operator==(omi_BtreeEnd) const noexcept { return m_Walk.AtEnd(); }

private:
    omi_BtreeIterator<K, V> m_Walk;
};

/// An ordered map that is copied deeply. `V` needs a default value.
template <class K, class V> class omi_Btree
{
public:
    using Node = omi_BtreeNode<K, V>;

    omi_Btree() = default;
    omi_Btree(const omi_Btree& source) : defaultValue(source.defaultValue)
    {
        root = CopyNodes(source.root);
        count = source.count;
    }
    omi_Btree& operator=(const omi_Btree& source)
    {
        if (this == &source) return *this;
        omi_Btree copy(source);
        defaultValue = copy.defaultValue;
        std::swap(root, copy.root);
        std::swap(count, copy.count);
        return *this;
    }
    ~omi_Btree() { DeleteNodes(root); }

    /// Adds an entry. A key that is there already keeps its value, and the answer is false.
    bool Insert(const K& key, const V& value)
    {
        Path path;
        int order = 0;
        for (Node* node = root; node != nullptr; node = order < 0 ? node->left : node->right)
        {
            order = omi_CompareKeys(key, node->key);
            if (order == 0) return false;
            path.Push(node);
        }
        Node* added = new Node(key, value);
        if (path.Size() == 0)
            root = added;
        else if (order < 0)
            path.Top()->left = added;
        else
            path.Top()->right = added;
        ++count;
        RebalanceUpwards(path, added);
        return true;
    }

    /// Takes out the entry of `key`; false when there is none.
    bool Remove(const K& key)
    {
        Path path;
        Node* node = root;
        while (node != nullptr)
        {
            const int order = omi_CompareKeys(key, node->key);
            if (order == 0) break;
            path.Push(node);
            node = order < 0 ? node->left : node->right;
        }
        if (node == nullptr) return false;
        Node* replacement = TakeReplacement(node);
        SetLink(path, node, replacement);
        --count;
        RebalanceUpwards(path, replacement);
        delete node; // last: `key` may be its key
        return true;
    }

    /// The value of `key`; `defaultValue` when the key is not there.
    const V& Get(const K& key) const
    {
        const Node* node = Find(key);
        return node != nullptr ? node->value : defaultValue;
    }
    /// The node of `key`; null when the key is not there.
    Node* Find(const K& key) { return root != nullptr ? root->Find(key) : nullptr; }
    const Node* Find(const K& key) const { return root != nullptr ? root->Find(key) : nullptr; }
    int Count() const noexcept { return count; }

    omi_BtreeRangeIterator<K, V, V> begin() { return omi_BtreeRangeIterator<K, V, V>(*this); }
    omi_BtreeRangeIterator<K, V, const V> begin() const
    {
        return omi_BtreeRangeIterator<K, V, const V>(*this);
    }
    omi_BtreeEnd end() const noexcept { return {}; }

    Node* root = nullptr;
    int count = 0;
    V defaultValue = V();

private:
    // The nodes from the root down to where a change happens. The inner array serves every tree of ordinary
    // depth without an allocation.
    class Path
    {
    public:
        void Push(Node* node)
        {
            if (m_Size < kInner)
                m_Inner[m_Size] = node;
            else
                m_Outer.push_back(node);
            ++m_Size;
        }
        void Pop()
        {
            if (--m_Size >= kInner) m_Outer.pop_back();
        }
        Node* Top() const { return m_Size > kInner ? m_Outer.back() : m_Inner[m_Size - 1]; }
        std::size_t Size() const noexcept { return m_Size; }

    private:
        static constexpr std::size_t kInner = 48;
        Node* m_Inner[kInner];
        std::vector<Node*> m_Outer;
        std::size_t m_Size = 0;
    };

    // kept: a missing child and a leaf both count 0, so a node may carry a chain of two on one side before it
    // rotates. Test: AChainOfTwoBelowANodeStaysAndAChainOfThreeRotates.
    static int HeightOf(const Node* node) noexcept { return node != nullptr ? node->height : 0; }

    static void UpdateHeight(Node* node) noexcept
    {
        const int left = node->left != nullptr ? node->left->height + 1 : 0;
        const int right = node->right != nullptr ? node->right->height + 1 : 0;
        node->height = std::max(left, right);
    }

    // The root of the subtree after at most one rotation.
    // kept: there is no double rotation; a left-right shape stays as deep as it was.
    // Test: ALeftRightShapeKeepsItsDepth.
    static Node* Rebalance(Node* node) noexcept
    {
        const int balance = HeightOf(node->right) - HeightOf(node->left);
        if (balance >= 2) return RotateLeft(node);
        if (balance < -1) return RotateRight(node);
        return node;
    }

    static Node* RotateLeft(Node* node) noexcept
    {
        Node* top = node->right;
        node->right = top->left;
        top->left = node;
        UpdateHeight(node);
        UpdateHeight(top);
        return top;
    }

    static Node* RotateRight(Node* node) noexcept
    {
        Node* top = node->left;
        node->left = top->right;
        top->right = node;
        UpdateHeight(node);
        UpdateHeight(top);
        return top;
    }

    // Lets the link that held `child`, in the last node of `path` or in the tree itself, hold `successor`.
    void SetLink(const Path& path, const Node* child, Node* successor) noexcept
    {
        if (path.Size() == 0)
            root = successor;
        else if (path.Top()->left == child)
            path.Top()->left = successor;
        else
            path.Top()->right = successor;
    }

    // `changed` hangs below the last node of `path`, with its height right.
    void RebalanceUpwards(Path& path, Node* changed) noexcept
    {
        while (true)
        {
            if (changed != nullptr) SetLink(path, changed, Rebalance(changed));
            if (path.Size() == 0) return;
            changed = path.Top();
            path.Pop();
            UpdateHeight(changed);
        }
    }

    // The subtree that takes the place of `removed`, without it. Nothing changes before the last allocation.
    static Node* TakeReplacement(Node* removed)
    {
        if (removed->right == nullptr) return removed->left;
        if (removed->left == nullptr) return removed->right;
        Path spine;
        Node* smallest = removed->right;
        for (; smallest->left != nullptr; smallest = smallest->left) spine.Push(smallest);
        if (spine.Size() > 0)
        {
            spine.Top()->left = smallest->right;
            for (; spine.Size() > 0; spine.Pop()) UpdateHeight(spine.Top());
            smallest->right = removed->right;
        }
        smallest->left = removed->left;
        UpdateHeight(smallest);
        return smallest;
    }

    static Node* CopyNode(const Node* source)
    {
        Node* copy = new Node(source->key, source->value);
        copy->height = source->height;
        return copy;
    }

    // A copy of the whole subtree, of the same shape. What is copied so far always hangs below `top`, so a
    // value that fails to copy leaves nothing behind.
    static Node* CopyNodes(const Node* source)
    {
        if (source == nullptr) return nullptr;
        Node* top = nullptr;
        try
        {
            std::vector<std::pair<const Node*, Node*>> unfinished;
            top = CopyNode(source);
            unfinished.emplace_back(source, top);
            while (!unfinished.empty())
            {
                const auto [from, to] = unfinished.back();
                unfinished.pop_back();
                if (from->left != nullptr)
                {
                    to->left = CopyNode(from->left);
                    unfinished.emplace_back(from->left, to->left);
                }
                if (from->right != nullptr)
                {
                    to->right = CopyNode(from->right);
                    unfinished.emplace_back(from->right, to->right);
                }
            }
        }
        catch (...)
        {
            DeleteNodes(top);
            throw;
        }
        return top;
    }

    // Turns the subtree into a list by rotating left children up, so that no depth of it needs a stack.
    static void DeleteNodes(Node* node) noexcept
    {
        while (node != nullptr)
        {
            if (node->left != nullptr)
            {
                Node* top = node->left;
                node->left = top->right;
                top->right = node;
                node = top;
                continue;
            }
            Node* next = node->right;
            delete node;
            node = next;
        }
    }
};
