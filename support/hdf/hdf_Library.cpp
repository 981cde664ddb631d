#include "hdf_Library.h"

#include "mem_Library.h"

static mem_LibraryCalls s_Calls;

// HDF5 starts at its first use and ends with the process. It is not closed here: the program may use it too.
void hdf_initialize(int& count) { s_Calls.Enter(count); }
void hdf_finalize(int& count) { s_Calls.Leave(count); }
