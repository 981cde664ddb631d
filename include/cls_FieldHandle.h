#pragma once

/// Names one attribute of a class: its name, which is what streams hold, and its index among the class's attributes
/// (-1 for an attribute without one). The name is a literal, which must outlive the handle.
class cls_FieldHandle
{
public:
    constexpr cls_FieldHandle(int index, const char* name) noexcept : m_Index(index), m_Name(name) {}
    constexpr int Index() const noexcept { return m_Index; }
    constexpr const char* Name() const noexcept { return m_Name; }

private:
    int m_Index;
    const char* m_Name;
};
