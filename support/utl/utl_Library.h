#pragma once

void utl_initialize(int& count);
void utl_finalize(int& count);
