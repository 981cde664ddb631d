#pragma once

#include <cstdlib>
#include <string>

/// Sets a variable of the environment, or takes it away with null, and restores it at its end.
class EnvironmentVariable
{
public:
    EnvironmentVariable(const char* name, const char* value) : m_Name(name)
    {
        const char* before = std::getenv(name);
        m_WasSet = before != nullptr;
        if (m_WasSet) m_Before = before;
        Put(value);
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable() { Put(m_WasSet ? m_Before.c_str() : nullptr); }

private:
    void Put(const char* value)
    {
        if (value != nullptr)
            ::setenv(m_Name, value, 1);
        else
            ::unsetenv(m_Name);
    }
    const char* m_Name;
    bool m_WasSet = false;
    std::string m_Before;
};
