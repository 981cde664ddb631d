#pragma once

#include "cow_String.h"
#include "utl_Descriptor.h"

/// Where one of a child's standard streams goes instead of where the parent's goes. Needed while the child is started,
/// and no longer.
class RFM_EXPORT uti_Redirection
{
public:
    /// Redirects nothing.
    uti_Redirection() noexcept = default;
    /// "2>" sends the standard error to the file `name`, which is made when it is not there and emptied when it is. All
    /// who write there write at its end.
    /// Throws: nex_AssertException for any other stream; utl_FileException when the file can't be opened.
    uti_Redirection(const cow_String& stream, const cow_String& name);

    /// The open file, -1 for none. It stays this object's.
    int ErrorDescriptor() const noexcept { return m_Error.Get(); }

private:
    utl_Descriptor m_Error;
};
