// Stands for the library's service in a program of its own: it fails as nothing that a request can hold makes it fail.

#include "rds_ProcessRequest.h"

#include <stdexcept>

int ProcessRequest() { throw std::runtime_error("no memory"); }
