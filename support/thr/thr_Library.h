#pragma once

void thr_initialize(int& count);
void thr_finalize(int& count);
