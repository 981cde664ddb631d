#include "rfm_Array.h"

#include "rfm_ArrayRepr.h"
#include "rfm_Database.h"

void cow_Deleter<rfm_ArrayRepr>::Delete(rfm_ArrayRepr* object) { delete object; }

template <class T, int N> rfm_Handle rfm_Array<T, N>::Handle() const { return Repr().Handle(); }
template <class T, int N> int rfm_Array<T, N>::Length() const { return Repr().Length(); }
template <class T, int N> int rfm_Array<T, N>::Location() const { return Repr().Location(); }
template <class T, int N> void rfm_Array<T, N>::Seek(int row) { Repr().Seek(row); }
template <class T, int N> void rfm_Array<T, N>::Truncate(int rows) { Repr().Truncate(rows); }
template <class T, int N> int rfm_Array<T, N>::Flush() { return Repr().Flush(); }
template <class T, int N> int rfm_Array<T, N>::Snap() { return Repr().Snap(); }
template <class T, int N> int rfm_Array<T, N>::FieldCount() const { return Repr().FieldCount(); }
template <class T, int N> rfm_Type rfm_Array<T, N>::Type() const { return Repr().Type(); }
template <class T, int N> int rfm_Array<T, N>::RowSize() const { return Repr().RowSize(); }
template <class T, int N> utl_FileOffset rfm_Array<T, N>::SpaceLength() const { return Repr().SpaceLength(); }
template <class T, int N> utl_FileOffset rfm_Array<T, N>::SpaceAllocation() const
{
    return Repr().SpaceAllocation();
}
template <class T, int N> void rfm_Array<T, N>::Append(rfm_Array<T, N>& other)
{
    Repr().Append(other.Repr());
}
template <class T, int N> int rfm_Array<T, N>::Read(T* data, int rowCount)
{
    return Repr().Read(data, rowCount);
}

template <class T, int N> cow_1DArrayList<cow_String> rfm_Array<T, N>::GetObjStatistics() const
{
    return Repr().GetObjStatistics();
}

template <class T, int N> int rfm_Array<T, N>::CopyAllowed(const rfm_Array<T, N>& other) const
{
    return Repr().CopyAllowed(other.Repr());
}

template <class T, int N> int rfm_Array<T, N>::Write(const T* data, int rowCount)
{
    return Repr().Write(data, rowCount);
}

template <class T, int N>
rfm_Handle rfm_Array<T, N>::CreateCopy(rfm_Database& target, rfm_Database& source, rfm_Handle array)
{
    return rfm_ArrayRepr::CreateCopy(target.Repr(), source.Repr(), array);
}

template class rfm_Array<int, rfm_TypeInt>;
template class rfm_Array<float, rfm_TypeFloat>;
template class rfm_Array<double, rfm_TypeDouble>;
template class rfm_Array<cow_String, rfm_TypeString>;
