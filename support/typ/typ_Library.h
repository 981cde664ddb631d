#pragma once

void typ_initialize(int& count);
void typ_finalize(int& count);
