#pragma once

void nex_initialize(int& count);
void nex_finalize(int& count);
