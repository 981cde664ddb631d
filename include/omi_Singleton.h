#pragma once

#include <type_traits>
#include <utility>

template <class T> class omi_Singleton;

/// The base of a singleton that can be taken down before the end of the process. It keeps the pointer to the one
/// instance: null before the first use, and again after the end.
template <class T> class omi_SingletonBase
{
public:
    static T* InstancePointer() noexcept { return s_Instance; }
    /// Ends the instance; the next `Instance()` makes a fresh one. Without an instance nothing happens.
    static void DeleteInstance() { delete std::exchange(s_Instance, nullptr); }

protected:
    omi_SingletonBase() noexcept = default;
    ~omi_SingletonBase() = default;

private:
    friend class omi_Singleton<T>;
    static T* s_Instance;
};

template <class T> T* omi_SingletonBase<T>::s_Instance = nullptr;

/// One process-wide instance of `T`, made at first use. It stays to the end of the process, unless `T` derives from
/// `omi_SingletonBase<T>`, which can end it.
/// Threads: the first use of a `T` that can be ended is not guarded, so the thread that starts the library makes it;
/// any other `T` may be used first by any thread.
template <class T> class omi_Singleton
{
public:
    static T& Instance()
    {
        if constexpr (std::is_base_of_v<omi_SingletonBase<T>, T>)
        {
            if (omi_SingletonBase<T>::s_Instance == nullptr) omi_SingletonBase<T>::s_Instance = new T;
            return *omi_SingletonBase<T>::s_Instance;
        }
        else
        {
            static T s_Only;
            return s_Only;
        }
    }
};
