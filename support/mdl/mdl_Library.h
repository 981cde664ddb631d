#pragma once

void mdl_initialize(int& count);
void mdl_finalize(int& count);
