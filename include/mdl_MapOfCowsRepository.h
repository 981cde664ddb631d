#pragma once

#include "cls_FieldHandle.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "cow_Btree.h"
#include "cow_String.h"
#include "mdl_Repository.h"
#include "omu_ChangeHistory.h"

#include <map>

/// The map of a repository as an attribute of its class: its name, its type id and its type of collection.
inline constexpr cls_FieldHandle mdl_MapField(-1, "map");
inline constexpr int mdl_MapTypeId = 2293762;
inline constexpr int mdl_MapCollectionType = 2;

/// A repository of `T` by keys `K`, held as a map of counted handles. Copying a repository costs counts; a writer copies
/// what it touches. `T` copies itself by `Copy()`, writes itself by `DBWrite` and has a read constructor; `TypeId()` of
/// the repository is defined by whoever makes one of its kind.
///
/// Each change is reported to the calling thread's `omu_ChangeHistory`, as a tuple of a word and the key.
/// Throws: nex_AssertException from `Get` and `ConstGet` for a key without an object.
/// Threads: a repository, and all copies that share with it, belong to one thread at a time; the keys are sorted inside
/// the const `Keys`.
template <class K, class T> class RFM_EXPORT mdl_MapOfCowsRepository : public mdl_Repository
{
public:
    using Entry = cow_ArrayCOW<T, cow_Virtual<T>>; ///< empty for a key without an object
    using Map = cow_Btree<K, Entry>;

    mdl_MapOfCowsRepository() { m_MapUid.AllocateUid(); }
    mdl_MapOfCowsRepository(const mdl_MapOfCowsRepository& source);
    /// What `DBWrite` wrote. Objects that were shared are shared again.
    explicit mdl_MapOfCowsRepository(const cls_ReadVisitor& reader);
    mdl_MapOfCowsRepository& operator=(const mdl_MapOfCowsRepository&) = delete;
    ~mdl_MapOfCowsRepository() override = default;

    static int TypeId() noexcept;
    mdl_MapOfCowsRepository* Copy() const override { return new mdl_MapOfCowsRepository(*this); }
    int DynTypeId() const override { return TypeId(); }
    void DBWrite(const cls_WriteVisitor& visitor) const override;
    void NewUid() override;
    int Size() const override { return m_Map.Count(); }

    /// Adds a copy of `object`, in the place of what the key had; true when it went in. Reports "Insert", and before
    /// that "Remove" when something was replaced.
    bool Insert(const K& key, const T& object) { return InsertEntry(K(key), Entry(object)); }
    /// The same with `object` itself, which the repository takes over.
    bool Insert(const K& key, T* object) { return InsertEntry(K(key), Entry(object)); }
    /// Takes out an entry and reports "Remove"; false, without a report, when there is none.
    bool Remove(const K& key) { return RemoveEntry(K(key)); }
    bool IsMember(const K& key) const { return m_Map.IsMember(key); }
    /// The object for writing, and so "Modify" is reported, whatever the caller does with it and whether or not there
    /// is one. It holds until the repository changes or is copied.
    T& Get(const K& key);
    const T& ConstGet(const K& key) const;
    /// The keys in ascending order. They are sorted again only after a change.
    cow_List<K> Keys() const;
    /// The map itself; changes through it are not reported.
    Map& GetMap();
    const Map& ConstGetMap() const noexcept { return m_Map; }

private:
    // The key is the caller's own copy: one that lies in the entry goes with it.
    bool InsertEntry(const K& key, const Entry& entry);
    bool RemoveEntry(const K& key);
    void Report(int capacity, const char* word, const K& key) const;
    void ReadMap(const cls_ReadVisitor& reader);

    Map m_Map;
    cls_Uid m_MapUid; // the map is an object of its own in a stream
    mutable cow_List<K> m_SortedKeys;
    mutable bool m_KeysStale = true;
    cls_Uid m_Uid;
};

/// Walks a repository in the order of its keys. It stands on a copy, so it sees the repository as it was when the walk
/// began.
template <class K, class T> class mdl_MapOfCowsRepositoryIT
{
public:
    /// Stands on the first entry.
    explicit mdl_MapOfCowsRepositoryIT(const mdl_MapOfCowsRepository<K, T>& repository)
        : m_Keys(repository.Keys()),
          m_Repository(repository)
    {
    }
    bool AtEnd() const noexcept { return m_Index >= m_Keys.Count(); }
    void Next() noexcept { ++m_Index; }
    /// Whether the key has an object.
    bool HasObject() const { return !m_Repository.ConstGetMap().ConstGet(Key()).IsNull(); }
    /// Throws: nex_AssertException at the end.
    const K& Key() const { return m_Keys.ConstGet(m_Index); }
    /// Throws: nex_AssertException at the end, and for a key without an object.
    const T& Value() const { return m_Repository.ConstGet(Key()); }

private:
    cow_List<K> m_Keys;
    mdl_MapOfCowsRepository<K, T> m_Repository;
    int m_Index = 0;
};

// A copy is an object of its own: both identities stay out.
template <class K, class T>
mdl_MapOfCowsRepository<K, T>::mdl_MapOfCowsRepository(const mdl_MapOfCowsRepository& source)
    : mdl_Repository(source),
      m_Map(source.m_Map),
      m_SortedKeys(source.m_SortedKeys),
      m_KeysStale(source.m_KeysStale)
{
    m_MapUid.AllocateUid();
}

template <class K, class T>
mdl_MapOfCowsRepository<K, T>::mdl_MapOfCowsRepository(const cls_ReadVisitor& reader)
    : mdl_Repository(reader.Base(mdl_Repository::TypeId()))
{
    m_MapUid.AllocateUid();
    const cls_ReadVisitor map = reader.Field(mdl_MapField);
    if (!map.IsNone()) ReadMap(map);
}

template <class K, class T> void mdl_MapOfCowsRepository<K, T>::ReadMap(const cls_ReadVisitor& reader)
{
    reader.CheckType(mdl_MapTypeId);
    reader.CheckCollectionType(mdl_MapCollectionType);
    std::map<cls_Uid, Entry> shared;
    for (int index = 0; index < reader.ElementCount(); ++index)
    {
        const cls_ReadVisitor element = reader.Element(index);
        Entry entry;
        if (!element.IsNone())
        {
            element.CheckType(T::TypeId());
            Entry& known = shared[element.GetUid()];
            if (known.IsNull()) known = Entry(new T(element));
            entry = known;
        }
        m_Map.InsertUnlessMember(reader.ElementKey(index), entry);
    }
}

template <class K, class T> void mdl_MapOfCowsRepository<K, T>::DBWrite(const cls_WriteVisitor& visitor) const
{
    if (!visitor.StartWrite(TypeId(), m_Uid)) return;
    mdl_Repository::DBWrite(visitor.Base(mdl_Repository::TypeId()));
    const cls_WriteVisitor map = visitor.Field(mdl_MapField);
    if (!map.StartWrite(mdl_MapTypeId, m_MapUid)) return;
    map.CheckCollectionType(mdl_MapCollectionType);
    for (const auto [key, entry] : m_Map)
    {
        if (entry.IsNull())
            map.Element(key).WriteNone(T::TypeId());
        else
            entry.ConstGet().DBWrite(map.Element(key));
    }
}

template <class K, class T> void mdl_MapOfCowsRepository<K, T>::NewUid()
{
    mdl_Repository::NewUid();
    m_Uid.NewUid();
}

template <class K, class T>
void mdl_MapOfCowsRepository<K, T>::Report(int capacity, const char* word, const K& key) const
{
    omu_PrimTuple change(capacity, '(');
    change.Put(word);
    change.Put(key);
    thr_ThreadSingleton<omu_ChangeHistory>::Instance().addChange(change);
}

template <class K, class T> bool mdl_MapOfCowsRepository<K, T>::InsertEntry(const K& key, const Entry& entry)
{
    m_KeysStale = true;
    const bool replaced = m_Map.Remove(key);
    if (!m_Map.InsertUnlessMember(key, entry)) return false;
    if (replaced) Report(2, "Remove", key);
    // What followers of the changes expect behind the key where a list would have the position.
    constexpr int kNoPosition = -99;
    omu_PrimTuple change(4, '(');
    change.Put("Insert");
    change.Put(key);
    change.Put(kNoPosition);
    thr_ThreadSingleton<omu_ChangeHistory>::Instance().addChange(change);
    return true;
}

template <class K, class T> bool mdl_MapOfCowsRepository<K, T>::RemoveEntry(const K& key)
{
    m_KeysStale = true;
    if (!m_Map.Remove(key)) return false;
    Report(2, "Remove", key);
    return true;
}

template <class K, class T> T& mdl_MapOfCowsRepository<K, T>::Get(const K& key)
{
    Report(4, "Modify", key);
    return m_Map.Get(key).Get();
}

template <class K, class T> const T& mdl_MapOfCowsRepository<K, T>::ConstGet(const K& key) const
{
    const Entry& entry = m_Map.ConstGet(key);
    if (entry.IsNull()) nex_ThrowAssert("!entry.IsNull()");
    return entry.ConstGet();
}

template <class K, class T> cow_List<K> mdl_MapOfCowsRepository<K, T>::Keys() const
{
    if (m_KeysStale)
    {
        m_SortedKeys = cow_BtreeUtils<K, Entry>::cow_Keys(m_Map);
        m_SortedKeys.Sort();
        m_KeysStale = false;
    }
    return m_SortedKeys;
}

template <class K, class T>
typename mdl_MapOfCowsRepository<K, T>::Map& mdl_MapOfCowsRepository<K, T>::GetMap()
{
    m_KeysStale = true; // whoever asks for it is going to change it
    return m_Map;
}
