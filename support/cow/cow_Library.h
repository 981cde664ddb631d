#pragma once

void cow_initialize(int& count);
void cow_finalize(int& count);
