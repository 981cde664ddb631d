#pragma once

void omni_initialize(int& count);
void omni_finalize(int& count);
