#pragma once

#include "cow_String.h"

/// How a caller names a field: by the index that its own layout gave it, which is the fast way, or by name when
/// the index is negative. A handle never changes and caches nothing.
class rfm_FieldHandle
{
public:
    rfm_FieldHandle(int index) noexcept : m_Index(index) {}
    rfm_FieldHandle(const cow_String& name, int index = -1) noexcept : m_Index(index), m_Name(name) {}
    rfm_FieldHandle(const char* name, int index = -1) : m_Index(index), m_Name(name) {}
    /// The name is `prefix` followed by `suffix`.
    rfm_FieldHandle(const cow_String& prefix, const char* suffix, int index)
        : m_Index(index),
          m_Name(prefix + cow_String(suffix))
    {
    }

    int Index() const noexcept { return m_Index; }
    const cow_String& Name() const noexcept { return m_Name; }

private:
    int m_Index;
    cow_String m_Name;
};
