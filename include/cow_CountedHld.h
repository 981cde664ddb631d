#pragma once

#include "rfm_Export.h"

#include <cstddef>
#include <utility>

/// How a `cow_CountedHld<T>` destroys its object. Specialised for classes that only the library knows whole.
template <class T> struct cow_Deleter
{
    static void Delete(T* object) { delete object; }
};

/// The count that the copies of one handle share: a plain int on the heap.
class RFM_EXPORT cow_Counter
{
public:
    explicit cow_Counter(int value) noexcept : m_Value(value) {}
    static void* operator new(std::size_t bytes);
    static void operator delete(void* block) noexcept;
    /// Takes one handle off the count; the last one frees it and gets true.
    static bool DropLast(cow_Counter* counter) noexcept;
    int m_Value;
};

/// A counted handle on one object: copies share it, and the last copy to go, or to be assigned over, deletes it.
/// An empty handle (default made, or moved from) may only be assigned to, tested and destroyed.
/// Threads: the count is plain, so all copies of a handle belong to one thread at a time.
template <class T> class cow_CountedHld
{
public:
    cow_CountedHld() noexcept = default;
    /// Takes ownership of `object` with a count of 1.
    explicit cow_CountedHld(T* object) : m_Object(object)
    {
        if (m_Object == nullptr) return;
        try
        {
            m_Count = new cow_Counter(1);
        }
        catch (...)
        {
            cow_Deleter<T>::Delete(m_Object);
            throw;
        }
    }
    cow_CountedHld(const cow_CountedHld& source) noexcept : m_Count(source.m_Count), m_Object(source.m_Object)
    {
        if (m_Count != nullptr) ++m_Count->m_Value;
    }
    cow_CountedHld(cow_CountedHld&& source) noexcept
        : m_Count(std::exchange(source.m_Count, nullptr)),
          m_Object(std::exchange(source.m_Object, nullptr))
    {
    }
    cow_CountedHld& operator=(cow_CountedHld source) noexcept
    {
        std::swap(m_Count, source.m_Count);
        std::swap(m_Object, source.m_Object);
        return *this;
    }
    ~cow_CountedHld() { Release(); }

    bool IsNull() const noexcept { return m_Object == nullptr; }
    /// How many handles share the object; 0 for an empty handle.
    int Count() const noexcept { return m_Count != nullptr ? m_Count->m_Value : 0; }

protected:
    void Delete() { cow_Deleter<T>::Delete(m_Object); }
    void Release()
    {
        if (m_Count != nullptr && cow_Counter::DropLast(std::exchange(m_Count, nullptr))) Delete();
    }

    cow_Counter* m_Count = nullptr;
    T* m_Object = nullptr;
};
