#include "utl_Descriptor.h"

#include <unistd.h>

void utl_Descriptor::Reset(int descriptor) noexcept
{
    const int old = std::exchange(m_Descriptor, descriptor);
    if (old >= 0) ::close(old); // never again after EINTR: by then the number may be somebody else's
}
