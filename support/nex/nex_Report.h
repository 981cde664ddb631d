#pragma once

#include <exception>

/// One line on standard error for a failure in a destructor, which can't throw and must not be silent.
void nex_ReportUnthrown(const std::exception& failure) noexcept;
