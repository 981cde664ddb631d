#include "typ_ArchCompTable.h"

#include "omi_Singleton.h"

#include <map>

namespace
{
struct Store
{
    std::map<int, typ_ArchCompEntry> tables;
};
} // namespace

void typ_ArchCompTable::InsertEntry(int id, const typ_ArchCompEntry& entry)
{
    omi_Singleton<Store>::Instance().tables.insert_or_assign(id, entry);
}

const typ_Entry* typ_ArchCompTable::FindRow(int typeId)
{
    const auto& tables = omi_Singleton<Store>::Instance().tables;
    const auto table = tables.find(typeId >> 16);
    if (table == tables.end()) return nullptr;
    const auto rows = table->second.Rows();
    const auto row = static_cast<std::size_t>(typeId & 0xFFFF);
    return row < rows.size() ? &rows[row] : nullptr;
}

bool typ_ArchCompTable::IsA(int typeId, int base)
{
    constexpr int kMostBases = 64; // far more than any class has: a table that leads in a circle ends here
    for (int step = 0; step < kMostBases; ++step)
    {
        if (typeId == base) return true;
        const typ_Entry* row = FindRow(typeId);
        if (row == nullptr) return false;
        typeId = row->base;
    }
    return false;
}
