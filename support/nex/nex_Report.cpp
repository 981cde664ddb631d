#include "nex_Report.h"

#include <cstdio>

void nex_ReportUnthrown(const std::exception& failure) noexcept
{
    for (const char* text = failure.what(); *text != '\0'; ++text)
        std::fputc(*text == '\n' ? ' ' : *text, stderr);
    std::fputc('\n', stderr);
}
