#pragma once

void atr_initialize(int& count);
void atr_finalize(int& count);
