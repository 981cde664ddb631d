#include "hdf_Call.h"

#include "hdf_Exception.h"

#include <mutex>
#include <string>

namespace
{
// Recursive: a handle that goes while an operation fails closes itself within the operation.
std::recursive_mutex s_Lock;

bool IsBuiltForThreads()
{
    static const bool isBuiltForThreads = []
    {
        hbool_t safe = false;
        return H5is_library_threadsafe(&safe) >= 0 && safe;
    }();
    return isBuiltForThreads;
}

// One line for each level, from the cause up to the call.
herr_t AddLevel(unsigned level, const H5E_error2_t* error, void* text)
{
    std::string& lines = *static_cast<std::string*>(text);
    if (level > 0) lines += "\n  ";
    if (error->func_name != nullptr) lines += error->func_name;
    lines += "(): ";
    if (error->desc != nullptr) lines += error->desc;
    return 0;
}
} // namespace

// The lock comes before the question whether it is needed: even that enters HDF5.
hdf_Call::hdf_Call(const char* action, const cow_String& fileName) : m_Action(action), m_FileName(fileName)
{
    s_Lock.lock();
    if (IsBuiltForThreads()) s_Lock.unlock();
    H5Eauto_is_v2(H5E_DEFAULT, &m_IsSecondForm);
    if (m_IsSecondForm != 0)
    {
        H5Eget_auto2(H5E_DEFAULT, &m_SecondForm, &m_PrintData);
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    }
    else
    {
        H5Eget_auto1(&m_FirstForm, &m_PrintData);
        H5Eset_auto1(nullptr, nullptr);
    }
}

hdf_Call::~hdf_Call()
{
    if (m_IsSecondForm != 0)
        H5Eset_auto2(H5E_DEFAULT, m_SecondForm, m_PrintData);
    else
        H5Eset_auto1(m_FirstForm, m_PrintData);
    if (!IsBuiltForThreads()) s_Lock.unlock();
}

void hdf_Call::Fail(const char* sourceName, int line) const
{
    std::string lines;
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, AddLevel, &lines);
    H5Eclear2(H5E_DEFAULT);
    hdf_Exception(m_Action, m_FileName, cow_String(std::string_view(lines))).Throw(sourceName, line);
}
