#pragma once

#include "utl_Descriptor.h"

/// The two ends of a pipe, close-on-exec from their first moment, so that no program that another thread starts
/// meanwhile gets them.
struct uti_Pipe
{
    utl_Descriptor readEnd;
    utl_Descriptor writeEnd;
};

/// Throws: nex_TextException when the system has none left.
uti_Pipe uti_MakePipe();

/// The same open file under a number above 2. A program that closed its own standard streams would get one of their
/// numbers, which the child's set-up then writes over.
/// Throws: nex_TextException when the system has no number left.
utl_Descriptor uti_AboveStandard(utl_Descriptor descriptor);
