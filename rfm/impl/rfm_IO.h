#pragma once

#include "cow_String.h"
#include "utl_FileOffset.h"

/// A stream of bytes, fixed-width numbers and fixed-width strings. Numbers are little-endian in every file of the
/// library (`omi_Swapper::Stored`); the flag says whether this host must reverse them.
/// Array operations answer elements. Elements of the caller's array behind those are undefined.
class rfm_IO
{
public:
    virtual ~rfm_IO();

    virtual bool ReadOnly() const = 0;
    virtual utl_FileOffset Length() const = 0;
    virtual void Seek(utl_FileOffset position) = 0;
    virtual utl_FileOffset Location() const = 0;
    virtual void Flush() = 0;
    virtual void Extend(utl_FileOffset amount) = 0;
    virtual int Read(char* buffer, int count) = 0;
    virtual int Write(const char* buffer, int count) = 0;

    virtual int ReadArray(int* values, int count);
    virtual int ReadArray(float* values, int count);
    virtual int ReadArray(double* values, int count);
    virtual void WriteArray(const int* values, int count);
    virtual void WriteArray(const float* values, int count);
    virtual void WriteArray(const double* values, int count);

    virtual int ReadInt();
    virtual float ReadFloat();
    virtual double ReadDouble();
    virtual cow_String ReadFixedString(int length);
    virtual void WriteInt(int value);
    virtual void WriteFloat(float value);
    virtual void WriteDouble(double value);
    /// `length` bytes: a longer text is cut without a terminator, a shorter one is padded with NUL.
    virtual void WriteFixedString(const cow_String& text, int length);

    bool Swapped() const noexcept { return m_Swapped; }

protected:
    rfm_IO();
    /// For a stream of the order given, whatever this host's is.
    explicit rfm_IO(bool swapped) noexcept : m_Swapped(swapped) {}
    rfm_IO(const rfm_IO&) = delete;
    rfm_IO& operator=(const rfm_IO&) = delete;

    static void CheckArray(const void* values, int count);

private:
    template <class T> int ReadNumbers(T* values, int count);
    template <class T> void WriteNumbers(const T* values, int count);
    template <class T> T ReadOne();

    const bool m_Swapped;
};

/// Words of 4 or 8 bytes between stored bytes and the host's order. Source and target may be the same address.
template <class T> void rfm_Internalize(const char* stored, T* values, int count, bool swapped);
template <class T> void rfm_Externalize(const T* values, char* stored, int count, bool swapped);
