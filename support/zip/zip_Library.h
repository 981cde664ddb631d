#pragma once

void zip_initialize(int& count);
void zip_finalize(int& count);
