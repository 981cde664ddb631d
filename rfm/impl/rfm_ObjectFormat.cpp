#include "rfm_ObjectFormat.h"

#include <climits>

int rfm_RowsInSpace(std::int64_t length, int firstRowOffset, std::int64_t rowSize)
{
    if (rowSize < 1 || length <= firstRowOffset) return 0;
    const double rows = static_cast<double>(length - firstRowOffset) / static_cast<double>(rowSize) + 0.5;
    return rows >= INT_MAX ? INT_MAX : static_cast<int>(rows);
}
