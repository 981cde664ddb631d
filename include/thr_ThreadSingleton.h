#pragma once

/// One instance of `T` for each thread, made at the thread's first use of it and destroyed with the thread.
template <class T> class thr_ThreadSingleton
{
public:
    static T& Instance()
    {
        static thread_local T s_Instance;
        return s_Instance;
    }
};
