#pragma once

void omu_initialize(int& count);
void omu_finalize(int& count);
