#pragma once

/// One process-wide instance of `T`, made at first use and kept to the end of the process.
template <class T> class omi_Singleton
{
public:
    static T& Instance()
    {
        static T s_Instance;
        return s_Instance;
    }
};
