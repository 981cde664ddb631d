#pragma once

void uti_initialize(int& count);
void uti_finalize(int& count);
