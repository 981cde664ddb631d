#include "utl_SystemText.h"

#include <string>
#include <system_error>

cow_String utl_SystemText(int error) { return cow_String(std::generic_category().message(error)); }
