#pragma once

#include "cow_String.h"
#include "rfm_Export.h"

#include <exception>

class cls_ReadVisitor;
class cls_WriteVisitor;

/// The base of everything that the library throws: words for the user, and where in the library it was thrown.
/// It is a std::exception, whose `what()` is `UserReport()`.
class RFM_EXPORT nex_Exception : public std::exception
{
public:
    nex_Exception() noexcept = default;
    nex_Exception(const nex_Exception&) noexcept = default;
    nex_Exception& operator=(const nex_Exception&) noexcept = default;
    ~nex_Exception() override;

    static int TypeId() noexcept;
    /// The type id of the class as it is stored: its own, or that of its nearest base that has one.
    virtual int DynTypeId() const;
    /// Writes the words and the place of the throw. Each write is an object of its own.
    virtual void DBWrite(const cls_WriteVisitor& visitor) const;
    /// A new copy of the whole object, which the caller owns.
    virtual nex_Exception* Copy() const = 0;
    /// Throws a copy of this object as what it is.
    [[noreturn]] virtual void Propagate() const = 0;
    /// The text with the name of its class in front.
    virtual cow_String AsString() const = 0;
    /// The text for the user.
    virtual cow_String UserReport() const = 0;
    /// `AsString` with the source name and line of the throw.
    virtual cow_String DeveloperReport() const;
    const char* what() const noexcept override = 0;

    /// Records where, and throws this object.
    [[noreturn]] void Throw(const char* sourceName, int line);
    /// Source name, inside the library's tree, and line of the throw.
    const cow_String& SourceName() const noexcept { return m_SourceName; }
    int Line() const noexcept { return m_Line; }

protected:
    explicit nex_Exception(const cls_ReadVisitor& reader);
    static cow_String StoredText(const cls_ReadVisitor& reader);

private:
    cow_String m_SourceName;
    int m_Line = 0;
};

/// A failure told in a text for the user.
class RFM_EXPORT nex_TextException : public nex_Exception
{
public:
    explicit nex_TextException(const atr_StringBase& text) noexcept : m_Text(text) {}
    explicit nex_TextException(const cls_ReadVisitor& reader);
    ~nex_TextException() override;
    static int TypeId() noexcept;
    int DynTypeId() const override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String UserReport() const override { return m_Text; }
    cow_String AsString() const override;
    const char* what() const noexcept override { return m_Text.CString(); }

private:
    cow_String m_Text;
};

/// A condition that a caller, or the library itself, broke; the text is the condition's.
class RFM_EXPORT nex_AssertException : public nex_Exception
{
public:
    explicit nex_AssertException(const atr_StringBase& condition) noexcept : m_Condition(condition) {}
    explicit nex_AssertException(const cls_ReadVisitor& reader);
    ~nex_AssertException() override;
    static int TypeId() noexcept;
    int DynTypeId() const override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String UserReport() const override { return m_Condition; }
    cow_String AsString() const override;
    const char* what() const noexcept override { return m_Condition.CString(); }

private:
    cow_String m_Condition;
};

/// A failure of a command of the command layer.
class RFM_EXPORT nex_CommandException : public nex_Exception
{
public:
    explicit nex_CommandException(const atr_StringBase& text) noexcept : m_Text(text) {}
    explicit nex_CommandException(const cls_ReadVisitor& reader);
    ~nex_CommandException() override;
    static int TypeId() noexcept;
    int DynTypeId() const override;
    nex_Exception* Copy() const override;
    [[noreturn]] void Propagate() const override;
    cow_String UserReport() const override { return m_Text; }
    cow_String AsString() const override;
    const char* what() const noexcept override { return m_Text.CString(); }

private:
    cow_String m_Text;
};

/// Throws a nex_TextException with `text`, marked with the place of the call.
[[noreturn]] RFM_EXPORT void nex_ThrowText(const atr_StringBase& text,
                                           const char* sourceName = __builtin_FILE(),
                                           int line = __builtin_LINE());
/// Throws a nex_AssertException with the text of the broken condition, marked with the place of the call.
[[noreturn]] RFM_EXPORT void nex_ThrowAssert(const char* condition, const char* sourceName = __builtin_FILE(),
                                             int line = __builtin_LINE());

/// Checks that an object of type `actualType` may be cast to `wantedType`: it is that type, or derives from it.
/// Throws: nex_AssertException, marked with the given place, when it may not.
RFM_EXPORT void nex_canDynamicCastRef(int wantedType, int actualType, const char* sourceName, int line);
