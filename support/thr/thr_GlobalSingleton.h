#pragma once

/// One process-wide instance of `T`, made at first use by whichever thread comes first, and kept to the end of the
/// process: what is destroyed at its exit may still need it. The others wait until it is made.
template <class T> class thr_GlobalSingleton
{
public:
    static T& Instance()
    {
        static T& s_Instance = *new T;
        return s_Instance;
    }
};
