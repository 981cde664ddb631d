#pragma once

void hdf_initialize(int& count);
void hdf_finalize(int& count);
