#pragma once

#include "omi_Singleton.h"
#include "thr_Mutex.h"

#include <atomic>

/// One instance of `T` for the process, made at first use, by whichever thread comes first, and kept to the end of the
/// process. The making is guarded by `thr_GlobalLock`, so the constructor of `T` must not ask for another one of these.
template <class T> class thr_GlobalSingleton
{
public:
    static T& Instance()
    {
        T* instance = s_Instance.load(std::memory_order_acquire);
        if (instance == nullptr) instance = MakeOnce();
        return *instance;
    }

private:
    static T* MakeOnce()
    {
        const thr_Locked<thr_GlobalLock> locked(omi_Singleton<thr_GlobalLock>::Instance());
        T* instance = s_Instance.load(std::memory_order_relaxed); // another thread may have been faster
        if (instance == nullptr)
        {
            instance = new T;
            s_Instance.store(instance, std::memory_order_release);
        }
        return instance;
    }

    static inline std::atomic<T*> s_Instance = nullptr;
};
