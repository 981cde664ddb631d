#pragma once

void zlib_initialize(int& count);
void zlib_finalize(int& count);
