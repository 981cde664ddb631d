#include "rfm_Table.h"

#include "rfm_TableRepr.h"

void cow_Deleter<rfm_TableRepr>::Delete(rfm_TableRepr* object) { delete object; }

rfm_Handle rfm_Table::Handle() const { return Repr().Handle(); }
int rfm_Table::Length() const { return Repr().Length(); }
int rfm_Table::Location() const { return Repr().Location(); }
void rfm_Table::Seek(int row) { Repr().Seek(row); }
void rfm_Table::Truncate(int rows) { Repr().Truncate(rows); }
int rfm_Table::Flush() { return Repr().Flush(); }
int rfm_Table::Snap() { return Repr().Snap(); }
int rfm_Table::GetFlushCount() const { return Repr().GetFlushCount(); }
void rfm_Table::Extend(int rows) { Repr().Extend(rows); }
int rfm_Table::RowSize() const { return Repr().RowSize(); }
const rfm_TableMetadata& rfm_Table::TableMetadata() const { return Repr().TableMetadata(); }
const rfm_TableMetadata::FieldMap& rfm_Table::GetFieldMap() const { return TableMetadata().Fields(); }
int rfm_Table::RowExists(int row) const { return Repr().RowExists(row); }
rfm_Row rfm_Table::ReadRow(int row) { return rfm_Row(Repr().ReadRow(row)); }
rfm_Row rfm_Table::UpdateRow(int row) { return rfm_Row(Repr().UpdateRow(row)); }
rfm_Row rfm_Table::NewRow() { return rfm_Row(Repr().NewRow()); }
cow_1DArrayList<cow_String> rfm_Table::GetObjStatistics() const { return Repr().GetObjStatistics(); }
utl_FileOffset rfm_Table::SpaceLength() const { return Repr().SpaceLength(); }
utl_FileOffset rfm_Table::SpaceAllocation() const { return Repr().SpaceAllocation(); }
void rfm_Table::Append(const rfm_Table& source) { Repr().Append(source.Repr()); }

int rfm_Table::CopyAllowed(const rfm_Table& source) const
{
    return TableMetadata().CopyAllowed(source.TableMetadata());
}

const rfm_FieldMetadata& rfm_Table::GetFieldMD(const rfm_FieldHandle& field) const
{
    return TableMetadata().GetFieldMD(field);
}

rfm_Type rfm_Table::Type(const cow_String& fieldName) const
{
    return static_cast<rfm_Type>(GetFieldMap().Get(fieldName).type);
}

int rfm_Table::Index(const cow_String& fieldName) const { return GetFieldMap().Get(fieldName).index; }
