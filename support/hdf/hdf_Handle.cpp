#include "hdf_Handle.h"

#include "hdf_Call.h"
#include "nex_Report.h"

#include <exception>
#include <utility>

hdf_Handle::hdf_Handle(hdf_Handle&& source) noexcept
    : m_Id(source.m_Id),
      m_Close(std::exchange(source.m_Close, nullptr)),
      m_FileName(std::move(source.m_FileName))
{
}

hdf_Handle& hdf_Handle::operator=(hdf_Handle&& source) noexcept
{
    std::swap(m_Id, source.m_Id);
    std::swap(m_Close, source.m_Close);
    std::swap(m_FileName, source.m_FileName);
    return *this;
}

hdf_Handle::~hdf_Handle()
{
    if (m_Close == nullptr) return;
    try
    {
        const hdf_Call call("close", m_FileName);
        call.Check(m_Close(m_Id));
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
    }
}
